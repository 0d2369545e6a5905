// Names, severities and the own items of payload logs.

#include "SyslogFixture.h"

namespace {

class SyslogPayloadLogTest : public SyslogTest {
protected:
    // A bare payload log of filter 1004 in format 1, from its action on.
    std::string Items(const velm_log_entry_s& entry) {
        const std::string message = Cef(1, entry);
        const std::string start = CEF_HEADER "1000552|Some Rule|8|" CEF_HOST " in=0 cnt=0 ";
        EXPECT_EQ(message.substr(0, start.size()), start);
        return message.substr(start.size());
    }
    // Header columns of a bare payload log: number, name, severity.
    std::string Columns(const velm_log_entry_s& entry) {
        const std::string message = Cef(1, entry);
        const std::string header = CEF_HEADER;
        const size_t end = message.find("|" CEF_HOST);
        EXPECT_NE(end, std::string::npos);
        return message.substr(header.size(), end - header.size());
    }
    std::string ColumnsOfSeverity(const std::string& severity) {
        configuration.Set("{payloadFilterMap = {[1] = {name = 'n', identifier = '9', severity = " +
                          severity + "}}}");
        return Columns(BarePayloadLog(1, -1, 1));
    }
};

TEST_F(SyslogPayloadLogTest, FilterGivesNumberNameAndSeverity) {
    EXPECT_EQ(Columns(BarePayloadLog(1004, -1, 1)), "1000552|Some Rule|8");
    EXPECT_EQ(Columns(BarePayloadLog(1005, -1, 1)), "1000600|Leak|3");
}

TEST_F(SyslogPayloadLogTest, SeverityOfTheFilterBecomesThatOfCef) {
    EXPECT_EQ(ColumnsOfSeverity("1"), "9|n|3");
    EXPECT_EQ(ColumnsOfSeverity("2"), "9|n|6");
    EXPECT_EQ(ColumnsOfSeverity("3"), "9|n|8");
    EXPECT_EQ(ColumnsOfSeverity("4"), "9|n|10");
}

TEST_F(SyslogPayloadLogTest, AnyOtherSeverityIs9) {
    EXPECT_EQ(ColumnsOfSeverity("nil"), "9|n|9");
    EXPECT_EQ(ColumnsOfSeverity("0"), "9|n|9");
    EXPECT_EQ(ColumnsOfSeverity("5"), "9|n|9");
    EXPECT_EQ(ColumnsOfSeverity("-1"), "9|n|9");
}

TEST_F(SyslogPayloadLogTest, UnknownFilterIsNamedByItsNumber) {
    EXPECT_EQ(Columns(BarePayloadLog(99, -1, 1)), "10|99|9");
    EXPECT_EQ(Plain(0, BarePayloadLog(99, -1, 1)),
              "REASON=PLD:99 REV HOSTID=7 LEN=0 CNT=0 act=Block POS=0 SPOS=0 FLAGS=0");
}

TEST_F(SyslogPayloadLogTest, FilterWithoutIdentifierIs10) {
    EXPECT_EQ(Columns(BarePayloadLog(1006, -1, 1)), "10|Nameless|9");
}

TEST_F(SyslogPayloadLogTest, WithoutFilterIsNamedByItsStatus) {
    EXPECT_EQ(Columns(BarePayloadLog(0, -504, 1)), "504|Invalid UTF8 Encoding|5");
    EXPECT_EQ(Columns(BarePayloadLog(0, -1, 1)), "1|Payload filter action|5");
    EXPECT_EQ(Columns(BarePayloadLog(0, -2, 1)), "2|Error: -2|5");
    EXPECT_EQ(Columns(BarePayloadLog(0, -32768, 1)), "32768|Error: -32768|5");
}

TEST_F(SyslogPayloadLogTest, WithoutFilterHasNoPrefixInThePlainForm) {
    EXPECT_EQ(Plain(1, BarePayloadLog(0, -504, 1)),
              "REASON=Invalid_UTF8_Encoding REV HOSTID=7 LEN=0 cnt=0 act=Block STATUS=-504 POS=0 "
              "SPOS=0 FLAGS=0");
}

TEST_F(SyslogPayloadLogTest, PlainFormTellsTheDirectionOfTheConnection) {
    velm_log_entry_s entry = BarePayloadLog(1004, -1, 1);
    EXPECT_EQ(Plain(1, entry),
              "REASON=PLD:Some_Rule REV HOSTID=7 LEN=0 cnt=0 act=Block POS=0 SPOS=0 FLAGS=0");
    entry.log_flags = 0x02;
    EXPECT_EQ(Plain(1, entry),
              "REASON=PLD:Some_Rule FWD HOSTID=7 LEN=0 cnt=0 act=Block POS=0 SPOS=0 FLAGS=0");
}

#define LINK "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 LEN=1500 cnt=2 act=Block POS=0"

class SyslogPayloadDirectionTest : public SyslogPayloadLogTest {
protected:
    // A frame of filter `filter`, from its interface on.
    std::string Frame(uint32_t filter, uint8_t flags) {
        velm_log_entry_s entry = PayloadEntry();
        entry.log_filter_id = filter;
        entry.log_flags = 0x08 | flags;
        entry.log_packet_pos = 0;
        const std::string message = Plain(1, entry);
        const size_t begin = message.find("IN=");
        return message.substr(begin, message.find(" SPOS") - begin);
    }
};

TEST_F(SyslogPayloadDirectionTest, InterfaceStandsBehindTheFiltersDirection) {
    EXPECT_EQ(Frame(1004, 0x01), "IN=eth0 OUT= " LINK);
    EXPECT_EQ(Frame(1005, 0x00), "IN= OUT=eth0 " LINK);
    EXPECT_EQ(Frame(1006, 0x00), "IN= OUT=eth0 " LINK);
}

TEST_F(SyslogPayloadDirectionTest, WithoutFilterCountsAsIncoming) {
    EXPECT_EQ(Frame(0, 0x01), "IN=eth0 OUT= " LINK);
}

TEST_F(SyslogPayloadDirectionTest, UnknownFilterCountsAsIncoming) {
    EXPECT_EQ(Frame(99, 0x01), "IN=eth0 OUT= " LINK);
}

TEST_F(SyslogPayloadDirectionTest, LengthsKeyInCefFollowsThePacket) {
    velm_log_entry_s entry = BarePayloadLog(1004, -1, 1);
    entry.log_flags = 0x01;
    EXPECT_EQ(Cef(1, entry), CEF_HEADER "1000552|Some Rule|8|" CEF_HOST
                                        " out=0 cnt=0 act=Block cn3=0 cs5=0 cs6=0");
    entry.log_filter_id = 1005;
    entry.log_flags = 0;
    EXPECT_EQ(Cef(1, entry),
              CEF_HEADER "1000600|Leak|3|" CEF_HOST " in=0 cnt=0 act=Block cn3=0 cs5=0 cs6=0");
}

TEST_F(SyslogPayloadLogTest, ReasonMinus1HasNoStatus) {
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 1)), "act=Block cn3=0 cs5=0 cs6=0");
}

TEST_F(SyslogPayloadLogTest, ReasonsBelowMinus1AreAStatusInTheirNegativeForm) {
    EXPECT_EQ(Items(BarePayloadLog(1004, -2, 1)), "act=Block cn2=-2 cn3=0 cs5=0 cs6=0");
    EXPECT_EQ(Items(BarePayloadLog(1004, -32768, 1)), "act=Block cn2=-32768 cn3=0 cs5=0 cs6=0");
}

TEST_F(SyslogPayloadLogTest, ActionIsWrittenForEveryFormat) {
    for (const int format : {0, 1, 2, 3}) {
        EXPECT_NE(Cef(format, BarePayloadLog(1004, -1, 1)).find(" act=Block"), std::string::npos);
        EXPECT_NE(Plain(format, BarePayloadLog(1004, -1, 1)).find(" act=Block"), std::string::npos);
    }
}

TEST_F(SyslogPayloadLogTest, DetectOnlyStandsInFrontOfTheAction) {
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 0x80)), "act=IDS:0 cn3=0 cs5=0 cs6=0");
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 0x81)), "act=IDS:Block cn3=0 cs5=0 cs6=0");
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 0x86)), "act=IDS:Log cn3=0 cs5=0 cs6=0");
}

TEST_F(SyslogPayloadLogTest, ActionWithoutAWordIsItsNumber) {
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 0)), "act=0 cn3=0 cs5=0 cs6=0");
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 7)), "act=7 cn3=0 cs5=0 cs6=0");
    EXPECT_EQ(Items(BarePayloadLog(1004, -1, 0x0101)), "act=257 cn3=0 cs5=0 cs6=0");
}

// The action is the one value of the extension that is not escaped: it needs none, whatever number
// the driver sends.
TEST_F(SyslogPayloadLogTest, UnescapedActionHoldsWordsAndNumbersOnly) {
    for (unsigned int action = 0; action <= 0xFFFF; action += action < 0x200 ? 1 : 97) {
        std::string value = Items(BarePayloadLog(1004, -1, static_cast<uint16_t>(action)));
        value = value.substr(0, value.find(" cn3="));
        ASSERT_EQ(value.substr(0, 4), "act=");
        ASSERT_EQ(value.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                          "0123456789:-",
                                          4),
                  std::string::npos)
            << value;
    }
}

TEST_F(SyslogPayloadLogTest, PositionsAreUnsigned) {
    velm_log_entry_s entry = BarePayloadLog(1004, -1, 1);
    entry.log_packet_pos = 65535;
    entry.log_stream_pos = 4294967295u;
    EXPECT_EQ(Items(entry), "act=Block cn3=65535 cs5=4294967295 cs6=0");
}

TEST_F(SyslogPayloadLogTest, FlagsAreRemapped) {
    velm_log_entry_s entry = BarePayloadLog(1004, -1, 1);
    const int shown[][2] = {{0x01, 32}, {0x02, 8}, {0x04, 16}, {0x08, 1},
                            {0x10, 2},  {0x20, 4}, {0x40, 0},  {0xFF, 63}};
    for (const auto& row : shown) {
        entry.log_dpi_flags = static_cast<uint8_t>(row[0]);
        EXPECT_EQ(Items(entry), "act=Block cn3=0 cs5=0 cs6=" + std::to_string(row[1]));
    }
}

}  // namespace
