// Agent events as messages.

#include "SyslogEvent.h"

#include <gtest/gtest.h>

#include "SyslogHeader.h"
#include "velm/Dom.h"

namespace {

class SyslogEventTest : public ::testing::Test {
protected:
    SyslogEventTest() {
        m_Dom.Set("velm.host.id", 7);
        m_Dom.SetText("velm.host.name", "web1");
    }
    std::string Cef(int format, int number, const std::string& text) {
        return Text("true", format, number, text);
    }
    std::string Plain(int format, int number, const std::string& text) {
        return Text("false", format, number, text);
    }

private:
    std::string Text(const char* cef, int format, int number, const std::string& text) {
        m_Dom.SetText("velm.syslog.cef", cef);
        m_Dom.Set("velm.syslog.format", format);
        SyslogEvents events(7);
        std::string out = "what was there before";
        events.Write(out, number, text);
        return out;
    }

    VelmCore::CDom m_Dom;
};

#define HEADER "CEF:0|Zellora|Velm Agent|0.1.0|"

TEST_F(SyslogEventTest, ProbeHasItsTypeAsNameAndItsSource) {
    const std::string text = "HostOrPortScan|192.0.2.66|6|600|1|1000";
    EXPECT_EQ(Cef(2, 7001, text), HEADER
              "7001|HostOrPortScan|8|cn1=7 cn1Label=Host ID dvchost=web1 src=192.0.2.66 "
              "msg=HostOrPortScan|192.0.2.66|6|600|1|1000");
    EXPECT_EQ(Cef(1, 7001, text), HEADER
              "7001|HostOrPortScan|8|cn1=7 dvchost=web1 src=192.0.2.66 "
              "msg=HostOrPortScan|192.0.2.66|6|600|1|1000");
    EXPECT_EQ(Plain(0, 7001, text),
              "REASON=HostOrPortScan HOSTID=7 EVENT=7001 SRC=192.0.2.66 "
              "MSG=HostOrPortScan|192.0.2.66|6|600|1|1000");
    EXPECT_EQ(Plain(1, 7001, text),
              "REASON=HostOrPortScan HOSTID=7 event=7001 src=192.0.2.66 "
              "msg=HostOrPortScan|192.0.2.66|6|600|1|1000");
}

TEST_F(SyslogEventTest, FaultIsNamedByItsNumber) {
    EXPECT_EQ(Cef(1, 6009, "/var/log/x|No space left"),
              HEADER "6009|Log File Failure|7|cn1=7 dvchost=web1 msg=/var/log/x|No space left");
    EXPECT_EQ(Cef(1, 1001, "x"), HEADER "1001|Driver Command Failed|7|cn1=7 dvchost=web1 msg=x");
    EXPECT_EQ(Cef(1, 2019, "x"), HEADER "2019|Bad Address List|5|cn1=7 dvchost=web1 msg=x");
    EXPECT_EQ(Cef(1, 3001, "x"), HEADER "3001|Log Retrieval Failed|5|cn1=7 dvchost=web1 msg=x");
    EXPECT_EQ(Cef(1, 4242, ""), HEADER "4242|Agent Event|3|cn1=7 dvchost=web1 msg=");
}

TEST_F(SyslogEventTest, TextIsEscapedInCef) {
    EXPECT_EQ(Cef(1, 2019, "a=b\\c\r\nd|e"),
              HEADER "2019|Bad Address List|5|cn1=7 dvchost=web1 msg=a\\=b\\\\c\\r\\nd|e");
    EXPECT_EQ(Cef(1, 7000, "Odd\\=\n|1=2|6|0"),
              HEADER "7000|Odd\\\\= |8|cn1=7 dvchost=web1 src=1\\=2 msg=Odd\\\\\\=\\n|1\\=2|6|0");
}

TEST_F(SyslogEventTest, BlanksOfThePlainFormAreUnderscores) {
    EXPECT_EQ(Plain(0, 6009, "/var/log/x|No space left"),
              "REASON=Log_File_Failure HOSTID=7 EVENT=6009 MSG=/var/log/x|No_space_left");
}

TEST_F(SyslogEventTest, ProbeWithoutFieldsHasNoSource) {
    EXPECT_EQ(Cef(1, 7004, "XmasScan"), HEADER "7004|XmasScan|8|cn1=7 dvchost=web1 msg=XmasScan");
}

TEST_F(SyslogEventTest, SeverityFollowsTheNumber) {
    EXPECT_EQ(SyslogEvents::Severity(7000), kSyslogWarning);
    EXPECT_EQ(SyslogEvents::Severity(7004), kSyslogWarning);
    EXPECT_EQ(SyslogEvents::Severity(7005), kSyslogNotice);
    EXPECT_EQ(SyslogEvents::Severity(6001), kSyslogError);
    EXPECT_EQ(SyslogEvents::Severity(1001), kSyslogError);
    EXPECT_EQ(SyslogEvents::Severity(2019), kSyslogWarning);
}

}  // namespace
