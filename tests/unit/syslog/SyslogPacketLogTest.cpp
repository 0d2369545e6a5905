// Names, actions and severities of packet logs.

#include "SyslogFixture.h"

namespace {

class SyslogPacketLogTest : public SyslogTest {
protected:
    static std::string CefMessage(const std::string& columns, const std::string& action) {
        return CEF_HEADER + columns + "|" CEF_HOST_LABELLED " act=" + action + " in=0 cnt=0";
    }
    static std::string PlainMessage(const std::string& reason, const std::string& action) {
        return "REASON=" + reason + " HOSTID=7 act=" + action + " LEN=0 CNT=0";
    }
    std::string Cef2(uint32_t filter, int16_t reason, uint16_t action) {
        return Cef(2, BarePacketLog(filter, reason, action));
    }
    std::string Plain0(uint32_t filter, int16_t reason, uint16_t action) {
        return Plain(0, BarePacketLog(filter, reason, action));
    }
};

TEST_F(SyslogPacketLogTest, WithoutReasonAndFilterHasAnEmptyName) {
    EXPECT_EQ(Cef2(0, 0, 0), CefMessage("0||5", "Deny"));
    EXPECT_EQ(Plain0(0, 0, 0), PlainMessage("", "Deny"));
}

TEST_F(SyslogPacketLogTest, ConfiguredNameNeverReachesTheMessage) {
    EXPECT_EQ(Cef2(1234, 0, 1), CefMessage("21|1234|5", "Deny"));
    EXPECT_EQ(Plain0(1234, 0, 1), PlainMessage("PKT:1234", "Deny"));
}

TEST_F(SyslogPacketLogTest, ConfiguredActionStandsIfTheEntryHasNone) {
    EXPECT_EQ(Cef2(20, 0, 0), CefMessage("20|20|0", "Log"));
    EXPECT_EQ(Cef2(21, 0, 0), CefMessage("21|21|5", "Allow"));
    EXPECT_EQ(Cef2(33, 0, 0), CefMessage("21|33|5", "Force Allow"));
    EXPECT_EQ(Cef2(1234, 0, 0), CefMessage("21|1234|5", "Deny"));
    EXPECT_EQ(Plain0(33, 0, 0), PlainMessage("PKT:33", "Force_Allow"));
}

TEST_F(SyslogPacketLogTest, FilterWithoutActionLogs) {
    EXPECT_EQ(Cef2(35, 0, 0), CefMessage("20|35|0", "Log"));
}

TEST_F(SyslogPacketLogTest, UnknownConfiguredActionIsItsNumber) {
    EXPECT_EQ(Cef2(34, 0, 0), CefMessage("21|34|5", "77"));
}

TEST_F(SyslogPacketLogTest, UnknownFilterHasAnEmptyNameAndDenies) {
    EXPECT_EQ(Cef2(99, 0, 0), CefMessage("21||5", "Deny"));
    EXPECT_EQ(Plain0(99, 0, 0), PlainMessage("PKT:", "Deny"));
}

TEST_F(SyslogPacketLogTest, ActionOfTheEntryOverridesThatOfAnUnknownFilter) {
    EXPECT_EQ(Cef2(99, 0, 2), CefMessage("20||0", "Log"));
}

TEST_F(SyslogPacketLogTest, ActionOfTheEntryOverridesThatOfTheFilter) {
    EXPECT_EQ(Cef2(20, 0, 1), CefMessage("21|20|5", "Deny"));
    EXPECT_EQ(Cef2(1234, 0, 2), CefMessage("20|1234|0", "Log"));
    EXPECT_EQ(Cef2(33, 0, 6), CefMessage("20|33|0", "Log"));
}

TEST_F(SyslogPacketLogTest, ActionIsComparedWithAllItsBitsButDetectOnly) {
    EXPECT_EQ(Cef2(1234, 0, 0x0101), CefMessage("20|1234|0", "Log"));
}

TEST_F(SyslogPacketLogTest, DetectOnlyStandsInFrontOfTheAction) {
    EXPECT_EQ(Cef2(20, 0, 129), CefMessage("21|20|5", "IDS:Deny"));
    EXPECT_EQ(Plain0(20, 0, 129), PlainMessage("PKT:20", "IDS:Deny"));
}

TEST_F(SyslogPacketLogTest, DetectOnlyAloneCountsAsAnAction) {
    EXPECT_EQ(Cef2(1234, 0, 128), CefMessage("20|1234|0", "IDS:Log"));
}

TEST_F(SyslogPacketLogTest, SanityCheckIsNamedByItsReason) {
    EXPECT_EQ(Cef2(0, 100, 1), CefMessage("100|Out Of Connection|5", "Deny"));
    EXPECT_EQ(Plain0(0, 100, 1), PlainMessage("Out_Of_Connection", "Deny"));
}

TEST_F(SyslogPacketLogTest, SanityCheckThatWasOnlyLoggedKeepsItsSeverity) {
    EXPECT_EQ(Cef2(0, 109, 6), CefMessage("109|Invalid Frament Offsets|5", "Log"));
}

TEST_F(SyslogPacketLogTest, ReasonWithoutWordsIsItsNumber) {
    EXPECT_EQ(Cef2(0, 129, 1), CefMessage("129|0x81|5", "Deny"));
    EXPECT_EQ(Plain0(0, 10000, 1), PlainMessage("0x2710", "Deny"));
}

TEST_F(SyslogPacketLogTest, FilterComesBeforeTheReason) {
    EXPECT_EQ(Cef2(1234, 100, 1), CefMessage("21|1234|5", "Deny"));
}

TEST_F(SyslogPacketLogTest, Format1HasNoAction) {
    EXPECT_EQ(Cef(1, BarePacketLog(1234, 0, 129)), CEF_HEADER "21|1234|5|" CEF_HOST " in=0 cnt=0");
    EXPECT_EQ(Plain(1, BarePacketLog(1234, 0, 129)), "REASON=PKT:1234 HOSTID=7 LEN=0 cnt=0");
}

TEST_F(SyslogPacketLogTest, OutgoingPacketIsToldByTheLengthsKeyInCefAlone) {
    velm_log_entry_s entry = BarePacketLog(1234, 0, 1);
    entry.log_flags = 0x01;
    entry.log_packet_len = 60;
    EXPECT_EQ(Cef(1, entry), CEF_HEADER "21|1234|5|" CEF_HOST " out=60 cnt=0");
    EXPECT_EQ(Plain(1, entry), "REASON=PKT:1234 HOSTID=7 LEN=60 cnt=0");
}

TEST_F(SyslogPacketLogTest, InterfaceStandsBehindThePacketsDirection) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x08;
    EXPECT_EQ(Plain(1, entry),
              "REASON=PKT: HOSTID=7 IN=eth0 OUT= MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 "
              "LEN=60 cnt=1");
    entry.log_flags = 0x09;
    EXPECT_EQ(Plain(1, entry),
              "REASON=PKT: HOSTID=7 IN= OUT=eth0 MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 "
              "LEN=60 cnt=1");
}

}  // namespace
