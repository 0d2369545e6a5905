// The formatter as scripts call it. The host has neither settings nor a number.

#include "ScriptFixture.h"

namespace {

#define START "CEF:0|Zellora|Velm Agent|0.1.0|"
#define HOST "cn1=0 cn1Label=Host ID dvchost="
#define LINK "dmac=00:0c:29:11:22:33 smac=00:0c:29:44:55:66 ZelloraFrameType=IP"
#define PACKET                                                                        \
    "src=10.0.0.5 dst=10.0.0.9 in=60 cs3=DF 0 cs3Label=Fragmentation Bits proto=TCP " \
    "spt=51000 dpt=443 cs2=0x00 ACK PSH cs2Label=TCP Flags cnt=1"
#define DENIED START "21||5|" HOST " act=Deny " LINK " " PACKET

class SyslogScriptTest : public ScriptTest {
protected:
    SyslogScriptTest() {
        velm_log_entry_s payload = {};
        payload.log_reason = -1;
        payload.log_action = 1;
        payload.log_filter_id = 1;
        SetEntry("payload", payload);
        Run("function Name(name)"
            "  return {payloadFilterMap = {{name = name, identifier = '9', severity = 1}}} end");
    }
};

TEST_F(SyslogScriptTest, ReturnsTheText) {
    EXPECT_EQ(Eval("log:SyslogFormat(entry, '', {})"), DENIED);
    EXPECT_EQ(Eval("select('#', log:SyslogFormat(entry, '', {}))"), "1");
}

TEST_F(SyslogScriptTest, ConfigurationIsTheThirdArgument) {
    EXPECT_EQ(Eval("log:SyslogFormat(entry, '', {packetFilterMap = {[17] = {filterAction = 0}}})"),
              START "21|17|5|" HOST " act=Deny " LINK " " PACKET);
}

TEST_F(SyslogScriptTest, ConfigurationThatIsNoTableStillGivesAMessage) {
    for (const char* config : {"nil", "7", "'text'", "print"}) {
        EXPECT_EQ(Eval("log:SyslogFormat(entry, '', " + std::string(config) + ")"), DENIED);
    }
    EXPECT_EQ(Eval("log:SyslogFormat(entry)"), DENIED);
}

TEST_F(SyslogScriptTest, PlainFormWithoutAConfigurationStillGivesAMessage) {
    dom.SetText("velm.syslog.cef", "false");
    dom.Set("velm.syslog.format", 1);
    EXPECT_EQ(Eval("log:SyslogFormat(payload)"),
              "REASON=PLD:1 REV HOSTID=0 LEN=0 cnt=0 act=Block POS=0 SPOS=0 FLAGS=0");
}

TEST_F(SyslogScriptTest, ShortEntryReadsAsIfItWentOnWithZeroBytes) {
    EXPECT_EQ(Eval("log:SyslogFormat(entry:sub(1, 0x18), '', {})"),
              START "0||5|" HOST " act=Deny in=0 cnt=0");
    EXPECT_EQ(Eval("log:SyslogFormat('', '', {})"), START "0||5|" HOST " act=Deny in=0 cnt=0");
    EXPECT_EQ(Eval("log:SyslogFormat(nil, nil, {})"), START "0||5|" HOST " act=Deny in=0 cnt=0");
}

TEST_F(SyslogScriptTest, PacketDataWithoutAStringFormIsEmpty) {
    velm_log_entry_s withData = {};
    withData.log_dpi_flags = 0x02;
    withData.log_packet_data_len = 3;
    SetEntry("withData", withData);
    const std::string start = START "0||5|" HOST " act=Deny in=0 cnt=0 ZelloraPacketData=";
    EXPECT_EQ(Eval("log:SyslogFormat(withData, 'abc', {})"), start + "YWJj");
    EXPECT_EQ(Eval("log:SyslogFormat(withData, nil, {})"), start + "AAAA");
    EXPECT_EQ(Eval("log:SyslogFormat(withData, {}, {})"), start + "AAAA");
    EXPECT_EQ(Eval("log:SyslogFormat(withData, 123, {})"), start + "MTIz");
}

// What follows the zero byte is lost, what stands behind the name is not.
TEST_F(SyslogScriptTest, NameEndsAtItsFirstZeroByte) {
    EXPECT_EQ(Eval("log:SyslogFormat(payload, '', Name('one\\0two'))"),
              START "9|one|3|" HOST
                    " in=0 cnt=0 act=Block cn3=0 cn3Label=DPI Packet Position "
                    "cs5=0 cs5Label=DPI Stream Position cs6=0 cs6Label=DPI Flags");
    dom.SetText("velm.syslog.cef", "false");
    dom.Set("velm.syslog.format", 1);
    EXPECT_EQ(Eval("log:SyslogFormat(payload, '', Name('one\\0two'))"),
              "REASON=PLD:one REV HOSTID=0 LEN=0 cnt=0 act=Block POS=0 SPOS=0 FLAGS=0");
}

TEST_F(SyslogScriptTest, MessageHasNoZeroByte) {
    dom.SetText("velm.host.name", std::string("we\0b", 4));
    EXPECT_EQ(Eval("log:SyslogFormat(payload, '', Name('\\0')):find('\\0', 1, true)"), "nil");
    EXPECT_EQ(Eval("#log:SyslogFormat(payload, '', Name('\\0')) > 100"), "true");
}

TEST_F(SyslogScriptTest, FailsOnAnythingButALog) {
    EXPECT_EQ(Run("log.SyslogFormat({}, entry, '', {})"),
              "script:1: bad argument #1 to 'SyslogFormat' (LogData object expected)");
    EXPECT_EQ(Run("log.SyslogFormat()"),
              "script:1: bad argument #1 to 'SyslogFormat' (LogData object expected)");
}

TEST_F(SyslogScriptTest, ErrorInTheConfigurationLeavesTheLogUsable) {
    EXPECT_EQ(Run("log:SyslogFormat(entry, '', setmetatable({}, {__index = function()"
                  " error('trap', 0) end}))"),
              "trap");
    EXPECT_EQ(Peer().configUtils, nullptr);
    EXPECT_EQ(Eval("log:SyslogFormat(entry, '', {})"), DENIED);
}

TEST_F(SyslogScriptTest, ConfigurationIsForgottenAfterTheCall) {
    Run("log:SyslogFormat(entry, '', {})");
    EXPECT_EQ(Peer().configUtils, nullptr);
}

TEST_F(SyslogScriptTest, SettingsAreReadForEveryMessage) {
    dom.SetText("velm.syslog.cef", "false");
    EXPECT_EQ(Eval("log:SyslogFormat(payload:sub(1, 0x14), '', {})"),
              "REASON= HOSTID=0 act=Deny LEN=0 cnt=0");
    dom.SetText("velm.syslog.cef", "true");
    dom.Set("velm.syslog.format", 1);
    EXPECT_EQ(Eval("log:SyslogFormat(payload:sub(1, 0x14), '', {})"),
              START "0||5|cn1=0 dvchost= in=0 cnt=0");
}

}  // namespace
