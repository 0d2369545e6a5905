// Bounds: the message's buffer, the widths of single values, and numbers that the driver does not
// vouch for.

#include <cstdio>

#include "SyslogFixture.h"

namespace {

// The longest text that the buffer holds.
constexpr size_t kFullText = 65535;

class SyslogLimitsTest : public SyslogTest {
protected:
    // One payload filter, number 1, whose name and identifier are given as Lua writes them.
    void SetPayloadFilter(const std::string& name, const std::string& identifier = "'9'") {
        configuration.Set("{payloadFilterMap = {[1] = {name = " + name +
                          ", identifier = " + identifier + ", severity = 2}}}");
    }
    static Texts Assertions() {
        Texts found;
        for (const std::string& line : TakeLogLines()) {
            if (line.find("strlen(LogBuf) < sizeof(LogBuf) - 1") != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }
};

TEST_F(SyslogLimitsTest, OutsideAScriptCallNothingIsFormatted) {
    OSTREL::WorkingRecord record;
    record.Assign(TcpEntry(), nullptr, 0, nullptr, 0);
    std::string out = "untouched";
    TraceScope trace;
    EXPECT_FALSE(log.SyslogFormat(&record, out));
    EXPECT_EQ(out, "untouched");
    EXPECT_EQ(trace.Take(), (Texts{"SyslogFormat CEF: 1, format: 2",
                                   "Cannot do SyslogFormat when ConfigUtils is NULL"}));
}

TEST_F(SyslogLimitsTest, FormattingCachesAndWritesNothing) {
    Cef(2, PayloadEntry(), "abcd");
    Plain(0, TcpEntry());
    EXPECT_TRUE(peer.cache.empty());
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(File(), "");
    EXPECT_TRUE(Events().empty());
    EXPECT_TRUE(TakeLogLines().empty());
}

TEST_F(SyslogLimitsTest, HugeNameIsCutSilentlyAtTheBuffersEnd) {
    SetPayloadFilter("('x'):rep(100000)");
    const std::string start = CEF_HEADER "9|";
    EXPECT_EQ(Cef(1, BarePayloadLog(1, -1, 1)), start + std::string(kFullText - start.size(), 'x'));
}

TEST_F(SyslogLimitsTest, PayloadLogThatMayHaveBeenCutIsReported) {
    SetPayloadFilter("('x'):rep(100000)");
    Cef(1, BarePayloadLog(1, -1, 1));
    EXPECT_EQ(Assertions().size(), 1u);
}

TEST_F(SyslogLimitsTest, LongPayloadLogThatFitsIsNotReported) {
    SetPayloadFilter("('x'):rep(65000)");
    Cef(1, BarePayloadLog(1, -1, 1));
    EXPECT_EQ(Assertions(), Texts());
}

TEST_F(SyslogLimitsTest, NameWithACharacterBeyondUnicodeIsNoFaultOfTheProgram) {
    SetPayloadFilter("'a\\244\\144\\128\\128'");
    EXPECT_EQ(Plain(1, BarePayloadLog(1, -1, 1)).substr(0, 15), "REASON=PLD: REV");
    EXPECT_EQ(TakeLogLines(), Texts());
}

TEST_F(SyslogLimitsTest, PacketDataStandsBehindACutMessage) {
    SetPayloadFilter("'n'", "('7'):rep(100000)");
    velm_log_entry_s entry = BarePayloadLog(1, -1, 1);
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 3;
    const std::string start = CEF_HEADER;
    EXPECT_EQ(Cef(2, entry, "abc"),
              start + std::string(kFullText - start.size(), '7') + " ZelloraPacketData=YWJj");
}

TEST_F(SyslogLimitsTest, HugeHostNameCutsAPacketLogWithoutAReport) {
    dom.SetText("velm.host.name", std::string(100000, 'h'));
    const std::string start = CEF_HEADER "21|1234|5|cn1=7 dvchost=";
    EXPECT_EQ(Cef(1, BarePacketLog(1234, 0, 1)),
              start + std::string(kFullText - start.size(), 'h'));
    EXPECT_EQ(Assertions(), Texts());
}

TEST_F(SyslogLimitsTest, PlainNameIsCutAt128BytesWithItsPrefix) {
    SetPayloadFilter("('x'):rep(200)");
    EXPECT_EQ(Plain(1, BarePayloadLog(1, -1, 1)),
              "REASON=PLD:" + std::string(124, 'x') +
                  " REV HOSTID=0 LEN=0 cnt=0 act=Block POS=0 SPOS=0 FLAGS=0");
}

TEST_F(SyslogLimitsTest, CefNameIsNotCut) {
    SetPayloadFilter("('x'):rep(200)");
    EXPECT_EQ(Cef(1, BarePayloadLog(1, -1, 1)), CEF_HEADER "9|" + std::string(200, 'x') +
                                                    "|6|" CEF_HOST
                                                    " in=0 cnt=0 act=Block cn3=0 cs5=0 cs6=0");
}

TEST_F(SyslogLimitsTest, FilterNumberBeyond31BitsIsNegative) {
    EXPECT_EQ(Plain(1, BarePayloadLog(0xFFFFFFFE, -1, 1)),
              "REASON=PLD:-2 REV HOSTID=7 LEN=0 cnt=0 act=Block POS=0 SPOS=0 FLAGS=0");
    configuration.Set("{packetFilterMap = {[-2] = {filterAction = 1}}}");
    EXPECT_EQ(Plain(2, BarePacketLog(0xFFFFFFFE, 0, 0)),
              "REASON=PKT:-2 HOSTID=0 act=Allow LEN=0 cnt=0");
}

class SyslogInterfaceAddressTest : public SyslogLimitsTest {
protected:
    // What the interface's name is looked up by, told by the trace of a failed look-up.
    std::string LookedUp(uint32_t length, const std::string& packetData = "") {
        velm_log_entry_s entry = TcpEntry();
        entry.log_flags = 0x08;
        entry.log_if_addr_len = length;
        configuration.Set("{interfaceMap = {}}");
        TraceScope trace;
        EXPECT_EQ(Plain(1, entry, packetData),
                  "REASON=PKT: HOSTID=0 IN= OUT= MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 "
                  "LEN=60 cnt=1");
        const std::string prefix = "Could not look up interface given mac ";
        for (const std::string& line : trace.Take()) {
            if (line.compare(0, prefix.size(), prefix) == 0) return line.substr(prefix.size());
        }
        return "nothing";
    }
    // "00:00:...", of `count` bytes.
    static std::string Zeroes(size_t count) {
        std::string text = "00";
        for (size_t i = 1; i < count; ++i)
            text += ":00";
        return text;
    }
};

TEST_F(SyslogInterfaceAddressTest, LengthSaysHowMuchCounts) {
    EXPECT_EQ(LookedUp(0), "");
    EXPECT_EQ(LookedUp(1), "00");
    EXPECT_EQ(LookedUp(6), "00:0c:29:11:22:33");
    EXPECT_EQ(LookedUp(8), "00:0c:29:11:22:33:00:00");
}

TEST_F(SyslogInterfaceAddressTest, LengthIsNotClamped) {
    // Behind the address stands the packet's length, 60.
    EXPECT_EQ(LookedUp(9), "00:0c:29:11:22:33:00:00:3c");
    EXPECT_EQ(LookedUp(12), "00:0c:29:11:22:33:00:00:3c:00:00:00");
}

TEST_F(SyslogInterfaceAddressTest, InterfaceIsFoundByAnUnclampedAddress) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x08;
    entry.log_if_addr_len = 9;
    configuration.Set("{interfaceMap = {['00:0c:29:11:22:33:00:00:3c'] = {name = 'odd'}}}");
    const std::string message = Plain(1, entry);
    EXPECT_EQ(message.substr(0, message.find(" MAC")), "REASON=PKT: HOSTID=0 IN=odd OUT=");
}

TEST_F(SyslogInterfaceAddressTest, LengthBeyondTheEntryGoesOnInThePacketData) {
    const std::string text = LookedUp(200, "ABC");
    EXPECT_EQ(text.size(), 200 * 3 - 1u);
    // 136 bytes of the entry from the address on, then the data.
    EXPECT_EQ(text.substr(136 * 3), "41:42:43:" + Zeroes(61));
}

TEST_F(SyslogInterfaceAddressTest, WhatWasNotHandedOverReadsAsZero) {
    EXPECT_EQ(LookedUp(200).substr(136 * 3), Zeroes(64));
}

TEST_F(SyslogInterfaceAddressTest, LengthBeyondTheRecordEndsWithIt) {
    const std::string text = LookedUp(0xFFFFFFFF);
    EXPECT_EQ(text.size(), (65536 - 0x2C) * 3 - 1u);
    EXPECT_EQ(text.substr(136 * 3), Zeroes(65536 - 180));
    EXPECT_EQ(LookedUp(65536).size(), text.size());
}

}  // namespace
