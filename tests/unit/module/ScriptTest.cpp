// The operations of a log, called from a script.

#include "ScriptFixture.h"

namespace {

using namespace std::string_literals;

constexpr const char* kInterfaces =
    " config.driverInterfaceMap = {{id = 2, mac = '\\0\\12\\41\\17\\34\\51'}}"
    " config.interfaceMap = {['00:0c:29:11:22:33'] = {id = 3}}";

TEST_F(ScriptTest, PacketLogReachesTheFile) {
    Run(std::string("config = empty") + kInterfaces);
    EXPECT_EQ(Eval("log:WriteLogData(entry, '', config, '')"), "true");
    EXPECT_EQ(File(),
              "2025/11/13, 21:35:29, f, 0, 1, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, "
              "00 0C 29 11 22 33, TCP, ACK PSH DF=1, 10.0.0.5, 51000, 10.0.0.9, 443, 60, 1, 0, 17, "
              "3, , 0, 0, 0, 0, , , , 1, 1763069729000500, 1763069729000500\n");
}

TEST_F(ScriptTest, PayloadLogReachesTheFile) {
    Run(std::string("config = empty") + kInterfaces);
    SetEntry("entry", PayloadEntry());
    EXPECT_EQ(Eval("log:WriteLogData(entry, 'E\\0\\0004', config, '')"), "true");
    EXPECT_EQ(File(),
              "2025/11/13, 21:35:30, d, 0, 0, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, "
              "00 0C 29 11 22 33, TCP, ACK , 10.0.0.5, 51000, 10.0.0.9, 80, 1500, 1, -1, 1004, 3, "
              "2F6574632F706173, 120, 8840, 8, 0, 2, 45000034, , 2, 1763069731000100, "
              "1763069730000200\n");
}

TEST_F(ScriptTest, BlocksAreTakenWithTheirLengths) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 3;
    entry.log_data_len = 3;
    SetEntry("entry", entry);
    EXPECT_EQ(Eval("log:WriteLogData(entry, 'a\\0b', empty, 'c\\0d')"), "true");
    EXPECT_NE(File().find(", 610062, 630064, 1, "), std::string::npos);
}

TEST_F(ScriptTest, MissingBlocksCountAsEmpty) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_data_len = 3;
    SetEntry("entry", entry);
    EXPECT_EQ(Eval("log:WriteLogData(entry, nil, empty, nil)"), "true");
    EXPECT_EQ(Eval("log:WriteLogData(entry, nil, empty)"), "true");
    EXPECT_EQ(Eval("log:WriteLogData(entry, {}, empty, true)"), "true");
    EXPECT_NE(File().find(", , , , 1, 1763069729000500"), std::string::npos);
}

TEST_F(ScriptTest, RefusedEntryGivesFalse) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_reason = 10000;
    SetEntry("entry", entry);
    EXPECT_EQ(Eval("log:WriteLogData(entry, '', empty, '')"), "false");
}

TEST_F(ScriptTest, ConfigurationThatIsNoTableRefusesTheEntryOnce) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_if_index = 0xFFFFFFFF;  // no interface to look up
    SetEntry("entry", entry);
    for (const char* config : {"nil", "5", "'x'"}) {
        dom.ConditionRaise("app.configUpdated");
        const std::string call = std::string("log:WriteLogData(entry, '', ") + config + ", '')";
        EXPECT_EQ(Eval(call), "false") << config;
        EXPECT_EQ(Eval(call), "true") << config;
    }
}

// The lookup of an interface does not test for a table first.
TEST_F(ScriptTest, InterfaceLookupInAConfigurationThatIsNoTableRaises) {
    EXPECT_EQ(Run("log:WriteLogData(entry, '', nil, '')"), "attempt to index a nil value");
    EXPECT_EQ(Peer().configUtils, nullptr);
    EXPECT_EQ(Eval("log:WriteLogData(entry, '', empty, '')"), "true");
}

TEST_F(ScriptTest, ConfigurationReaderIsGoneBehindTheCall) {
    Run("log:WriteLogData(entry, '', empty, '')");
    EXPECT_EQ(Peer().configUtils, nullptr);
}

TEST_F(ScriptTest, NameAndPathMakeTheFullPath) {
    Run("log:SetLogFilePath('/x') log:SetLogFileName('y')");
    EXPECT_EQ(Eval("log:GetLogFilePath(), log:GetLogFileName(), log:GetLogFileFullPath()"),
              "/x y /x/y");
    Run("log:SetLogFilePath('/x/')");
    EXPECT_EQ(Eval("log:GetLogFileFullPath()"), "/x//y");
}

TEST_F(ScriptTest, SettersReturnNothing) {
    EXPECT_EQ(
        Eval("select('#', log:SetLogFileName('y')), select('#', log:SetLogFilePath('/x')),"
             " select('#', log:SetLogFileSizeKB(1)), select('#', log:SetNumberOfOldCopies(1))"),
        "0 0 0 0");
}

TEST_F(ScriptTest, NamesAreUtf8) {
    EXPECT_EQ(Eval("log:SetLogFileName('f\\195\\188') or log:GetLogFileName()"), "f\xC3\xBC");
}

TEST_F(ScriptTest, NameThatIsNotUtf8IsEmpty) {
    Run("log:SetLogFilePath('/x')");
    for (const char* name : {"'a\\255'", "'\\195'", "nil", "{}", "true"}) {
        Run("log:SetLogFileName('former')");
        Run(std::string("log:SetLogFileName(") + name + ")");
        EXPECT_EQ(Eval("'<' .. log:GetLogFileName() .. '>', log:GetLogFileFullPath()"), "<> /x/")
            << name;
    }
    Run("log:SetLogFilePath('\\255')");
    EXPECT_EQ(Eval("'<' .. log:GetLogFilePath() .. '>'"), "<>");
}

TEST_F(ScriptTest, NumberIsAName) {
    EXPECT_EQ(Eval("log:SetLogFileName(12) or log:GetLogFileName()"), "12");
}

TEST_F(ScriptTest, FileSizeAndCopiesAreIntegersWithoutAnyCheck) {
    EXPECT_EQ(Eval("log:GetLogFileSizeKB(), log:GetNumberOfOldCopies()"), "1024 7");
    Run("log:SetLogFileSizeKB(-5) log:SetNumberOfOldCopies(0)");
    EXPECT_EQ(Eval("log:GetLogFileSizeKB(), log:GetNumberOfOldCopies()"), "-5 0");
}

TEST_F(ScriptTest, CopiesThatAnIntCannotHoldAreRefused) {
    EXPECT_NE(Run("log:SetNumberOfOldCopies(2^32 + 1)"), "");
    EXPECT_NE(Run("log:SetNumberOfOldCopies(-2^31 - 1)"), "");
    EXPECT_EQ(Eval("log:GetNumberOfOldCopies()"), "7");
}

TEST_F(ScriptTest, FlushReadsItsArgumentAsABoolean) {
    Log().CacheRecord("a", 1000000, 1000000, 1);
    EXPECT_EQ(Eval("log:FlushBufferedData(false), log:FlushBufferedData(nil),"
                   " log:FlushBufferedData()"),
              "true true true");
    EXPECT_EQ(File(), "");
    EXPECT_EQ(Eval("log:FlushBufferedData(0)"), "true");
    EXPECT_EQ(File(), "1970/01/01, 00:00:01, a, 1, 1000000, 1000000\n");
}

TEST_F(ScriptTest, FlushTellsAFailedWrite) {
    Run("log:SetLogFileName('missing/fw')");
    Log().CacheRecord("a", 1, 1, 1);
    EXPECT_EQ(Eval("log:FlushBufferedData(true)"), "false");
}

TEST_F(ScriptTest, InitializeTellsWhetherTheFileIsOpen) {
    EXPECT_EQ(Eval("log:InitializeLogFile()"), "true");
    EXPECT_EQ(Eval("log:FlushBufferedData(true)"), "true");
    Run("log:SetLogFileName('missing/fw')");
    EXPECT_EQ(Eval("log:InitializeLogFile()"), "false");
}

// Retrieval, from a file with three packet logs and a payload log.
class ScriptRetrievalTest : public ScriptTest {
protected:
    ScriptRetrievalTest() {
        directory.Plant("fw",
                        "2025/11/13, 21:35:29, f, a, 1000000\n"
                        "2025/11/13, 21:35:29, f, b, 2000000\n"
                        "2025/11/13, 21:35:29, d, p, 3000000\n"
                        "2025/11/13, 21:35:29, f, c, 4000000\n");
    }
};

TEST_F(ScriptRetrievalTest, OneRecordALine) {
    EXPECT_EQ(Eval("log:GetLogData(0, 0, 0, 100)"),
              "f, a, 1000000\nf, b, 2000000\nf, c, 4000000\n");
}

TEST_F(ScriptRetrievalTest, MissingArgumentsAreZero) {
    EXPECT_EQ(Eval("log:GetLogData()"), "f, a, 1000000\nf, b, 2000000\nf, c, 4000000\n");
    EXPECT_EQ(Eval("log:GetLogData(3)"), "f, c, 4000000\n");
    EXPECT_EQ(Eval("log:GetLogData({}, 'x', true)"),
              "f, a, 1000000\nf, b, 2000000\nf, c, 4000000\n");
}

TEST_F(ScriptRetrievalTest, WindowIsInSeconds) {
    EXPECT_EQ(Eval("log:GetLogData(2, 3, 0, 100)"), "f, b, 2000000\n");
    EXPECT_EQ(Eval("log:GetLogData('2', 3, 0, 100)"), "f, b, 2000000\n");
}

// Lua's integers are as wide as a pointer; the narrow ones are made by rounding.
TEST_F(ScriptRetrievalTest, FractionOfASecondGoesAsLuaMakesIntegers) {
    constexpr bool isRounded = sizeof(lua_Integer) == 4;
    EXPECT_EQ(Eval("log:GetLogData(2, 3.9, 0, 100)"),
              isRounded ? "f, b, 2000000\nf, c, 4000000\n" : "f, b, 2000000\n");
}

TEST_F(ScriptRetrievalTest, NegativeEndIsNoEnd) {
    EXPECT_EQ(Eval("log:GetLogData(2, -5, 0, 100)"), "f, b, 2000000\nf, c, 4000000\n");
}

TEST_F(ScriptRetrievalTest, EndFarAwayIsNoEnd) {
    EXPECT_EQ(Eval("log:GetLogData(2, 2^63 - 1024, 0, 100)"), "f, b, 2000000\nf, c, 4000000\n");
}

TEST_F(ScriptRetrievalTest, KindOneAndTwoAreThePayloadLog) {
    EXPECT_EQ(Eval("log:GetLogData(0, 0, 1, 100)"), "d, p, 3000000\n");
    EXPECT_EQ(dom.Get("plg.ostrel.lastline.payload"), "2");
    EXPECT_EQ(dom.Get("plg.ostrel.lastline.pcap"), "");
    EXPECT_EQ(Eval("log:GetLogData(0, 0, 2, 100)"), "d, p, 3000000\n");
    EXPECT_EQ(dom.Get("plg.ostrel.lastline.pcap"), "2");
}

TEST_F(ScriptRetrievalTest, AnyOtherKindIsThePacketLog) {
    for (const char* kind : {"3", "-1", "1000"}) {
        EXPECT_EQ(Eval(std::string("log:GetLogData(4, 0, ") + kind + ", 100)"), "f, c, 4000000\n");
    }
}

TEST_F(ScriptRetrievalTest, LimitOfOneDeliversAllTheSame) {
    EXPECT_EQ(Eval("log:GetLogData(0, 0, 0, 1)"), "f, a, 1000000\nf, b, 2000000\nf, c, 4000000\n");
    EXPECT_EQ(Eval("log:GetLogData(0, 0, 0, -1)"), "f, a, 1000000\nf, b, 2000000\nf, c, 4000000\n");
}

TEST_F(ScriptRetrievalTest, NothingIsAnEmptyText) {
    EXPECT_EQ(Eval("type(log:GetLogData(9, 9, 0, 1)), #log:GetLogData(9, 9, 0, 1)"), "string 0");
}

TEST_F(ScriptRetrievalTest, ResultIsTracedWithTheIdentityOfTheMoment) {
    TraceScope trace;
    dom.SetText("uuid", "one");
    Run("log:GetLogData(4, 0, 0, 1)");
    Texts messages = trace.Take();
    EXPECT_EQ(messages.front(), "GetLogData(4, 0, one) for ");
    EXPECT_EQ(messages.back(),
              "GetLogData(one) returning 14 bytes for fw driver requested start time = "
              "Thu Jan  1 00:00:04 1970\n");
    dom.SetText("uuid", "two");
    Run("log:GetLogData(9, 0, 3, 1)");
    EXPECT_EQ(trace.Take().back(),
              "GetLogData(two) returning 0 bytes for dpi driver requested start time = "
              "Thu Jan  1 00:00:09 1970\n");
}

}  // namespace
