// The records of a time window: which lines belong to it, and which files are read.

#include <climits>

#include "RetrievalFixture.h"

namespace {

TEST_F(RetrievalTest, DeliversTheTextFromTheThirdColumnOn) {
    directory.Plant("fw", Fw("a", 100));
    Delivered delivered;
    EXPECT_TRUE(Retrieve(delivered, 0, 0));
    EXPECT_EQ(delivered.texts, Texts({"f, a, 1, 100000000, 100000000"}));
    EXPECT_EQ(delivered.times, std::vector<long>({100}));
    EXPECT_EQ(delivered.slack, 1800);
}

TEST_F(RetrievalTest, WhatThePipelineWroteComesBack) {
    Write(TcpEntry());
    log.FlushBufferedData(true);
    Delivered delivered;
    Retrieve(delivered, 1763069729, 1763069729);
    EXPECT_EQ(delivered.texts,
              Texts({"f, 0, 1, 00 0C 29 11 22 33, IP, 00 0C 29 44 55 66, 00 0C 29 11 22 33, TCP, "
                     "ACK PSH DF=1, 10.0.0.5, 51000, 10.0.0.9, 443, 60, 1, 0, 17, 3, , 0, 0, 0, 0, "
                     ", , , 1, 1763069729000500, 1763069729000500"}));
}

TEST_F(RetrievalTest, RecordsInTheCacheAreNotDelivered) {
    Write(TcpEntry());
    EXPECT_EQ(Tags(0, 0), Texts());
    EXPECT_EQ(peer.cache.size(), 1u);
}

TEST_F(RetrievalTest, WithoutBoundsEveryLineOfTheKindInAllFilesComesOldestFileFirst) {
    directory.Plant("fw", Fw("e", 5) + Dpi("x", 5) + Fw("f", 1));
    directory.Plant("fw.1", Fw("d", 9));
    directory.Plant("fw.2", Fw("b", 2) + Fw("c", 3));
    directory.Plant("fw.10", Fw("a", 8));
    EXPECT_EQ(Tags(0, 0), Texts({"a", "b", "c", "d", "e", "f"}));
    EXPECT_EQ(Bookmark(), 2);
}

TEST_F(RetrievalTest, EveryFileWithThePrefixIsRead) {
    directory.Plant("fwx", Fw("a", 1));
    EXPECT_EQ(Tags(0, 0), Texts({"a"}));
    EXPECT_EQ(Setting("plg.ostrel.lastline.packet"), -1);  // it is not the primary file
}

TEST_F(RetrievalTest, KindIsTheByteInFrontOfTheThirdComma) {
    directory.Plant("fw", Fw("a", 1) + Dpi("b", 2) + Line("xf", "c", 3) + Line("x", "d", 4));
    EXPECT_EQ(Tags(0, 0, OSTREL::DriverFirewall).size(), 2u);
    EXPECT_EQ(Tags(0, 0, OSTREL::DriverDpi), Texts({"b"}));
    EXPECT_EQ(Tags(0, 0, OSTREL::PseudoDriverPcap), Texts({"b"}));
}

TEST_F(RetrievalTest, EachKindHasItsBookmark) {
    directory.Plant("fw", Fw("a", 1) + Dpi("b", 2) + Fw("c", 3) + Dpi("d", 4));
    Tags(0, 0, OSTREL::DriverFirewall);
    EXPECT_EQ(Setting("plg.ostrel.lastline.packet"), 2);
    EXPECT_EQ(Setting("plg.ostrel.lastline.payload"), -1);
    Tags(0, 0, OSTREL::DriverDpi);
    EXPECT_EQ(Setting("plg.ostrel.lastline.payload"), 3);
    EXPECT_EQ(Setting("plg.ostrel.lastline.pcap"), -1);
    Tags(0, 0, OSTREL::PseudoDriverPcap);
    EXPECT_EQ(Setting("plg.ostrel.lastline.pcap"), 3);
}

TEST_F(RetrievalTest, BothEndsBelongToTheWindow) {
    directory.Plant("fw.1", Fw("a", 9) + Fw("b", 10) + Fw("c", 20) + Fw("d", 21));
    EXPECT_EQ(Tags(10, 20), Texts({"b", "c"}));
}

TEST_F(RetrievalTest, OneEndCanBeOpen) {
    directory.Plant("fw.1", Fw("a", 9) + Fw("b", 10) + Fw("c", 20) + Fw("d", 21));
    EXPECT_EQ(Tags(0, 20), Texts({"a", "b", "c"}));
    EXPECT_EQ(Tags(10, 0), Texts({"b", "c", "d"}));
}

TEST_F(RetrievalTest, TimeIsTheFirstTimeTruncatedToSeconds) {
    directory.Plant("fw.1", "x, x, f, a, 1, 999999999, 19999999\n");
    Delivered delivered;
    Retrieve(delivered, 19, 19);
    EXPECT_EQ(delivered.times, std::vector<long>({19}));
}

TEST_F(RetrievalTest, LineWithALastColumnOfZeroIsSkipped) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 1, 5000000, 0\n" + Fw("b", 1));
    EXPECT_EQ(Tags(0, 0), Texts({"b"}));
}

TEST_F(RetrievalTest, LineWithoutANumberInItsLastColumnIsSkipped) {
    directory.Plant("fw",
                    "2025/11/13, 21:35:29, f, a, 1, 5, x\n2025/11/13, 21:35:29, f, \n"
                    "2025/11/13, 21:35:29, f,\n");
    EXPECT_EQ(Tags(0, 0), Texts());
}

TEST_F(RetrievalTest, NumberIsReadUpToTheFirstOtherCharacter) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 7000000x\n");
    EXPECT_EQ(Tags(7, 7), Texts({"a"}));
}

TEST_F(RetrievalTest, NumberBeginsBehindTheLastCommasBlank) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a,97000000\n");
    EXPECT_EQ(Tags(7, 7), Texts({"a,97000000"}));
}

TEST_F(RetrievalTest, NumberThatOverflowsIsTheLargest) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 99999999999999999999999\n");
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.times, std::vector<long>({static_cast<long>(9223372036854LL)}));
}

TEST_F(RetrievalTest, NegativeTimesAreTimesButForMinusOne) {
    directory.Plant("fw",
                    "x, x, f, a, -1000000\nx, x, f, b, -1999999\nx, x, f, c, -5\n"
                    "x, x, f, d, -2000000\n");
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.times, std::vector<long>({0, -2}));
}

TEST_F(RetrievalTest, LinesThatAreNoRecordsAreSkippedAndCounted) {
    directory.Plant("fw", "\nno record\na, f, b\n" + Fw("a", 1));
    EXPECT_EQ(Tags(0, 0), Texts({"a"}));
    EXPECT_EQ(Bookmark(), 3);
}

TEST_F(RetrievalTest, ShortLineIsDeliveredAsAnEmptyText) {
    directory.Plant("fw", "x, x, f, 1000000\nxxxxx, xxxxx, f, 900000\nxxxxx, xxxxx, f, 2000000\n");
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"", "0", "00"}));
}

TEST_F(RetrievalTest, CarriageReturnEndsTheLine) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 1, 5, 7000000\r, 9, 9000000\n" + Fw("b", 8));
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"f, a, 1, 5, 7000000", "f, b, 1, 8000000, 8000000"}));
    EXPECT_EQ(delivered.times, std::vector<long>({7, 8}));
}

TEST_F(RetrievalTest, LineLongerThanTheBufferComesInPiecesThatAreLinesOfTheirOwn) {
    const std::string head = "2025/11/13, 21:35:29, f, ";
    const std::string filling(9343 - head.size() - 9, '8');
    directory.Plant(
        "fw", head + filling + ", 6000000x, x, f, tail of a long line, 7000000\n" + Fw("b", 9));
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"f, " + filling + ", 6000000", "g line, 7000000",
                                      "f, b, 1, 9000000, 9000000"}));
    EXPECT_EQ(delivered.times, std::vector<long>({6, 7, 9}));
    EXPECT_EQ(Bookmark(), 2);
}

TEST_F(RetrievalTest, LastLineNeedsNoLineFeed) {
    directory.Plant("fw", Fw("a", 1) + "2025/11/13, 21:35:29, f, b, 2000000");
    EXPECT_EQ(Tags(0, 0), Texts({"a", "b"}));
}

TEST_F(RetrievalTest, FileOlderThanTheWindowIsNotRead) {
    directory.Plant("fw.1", Fw("a", 500));
    directory.SetChangeTime("fw.1", 99);
    EXPECT_EQ(Tags(100, 0), Texts());
    directory.SetChangeTime("fw.1", 100);
    EXPECT_EQ(Tags(100, 0), Texts({"a"}));
}

TEST_F(RetrievalTest, ChangeTimeDoesNotMatterWithoutAStart) {
    directory.Plant("fw.1", Fw("a", 500));
    directory.SetChangeTime("fw.1", 1);
    EXPECT_EQ(Tags(0, 600), Texts({"a"}));
}

TEST_F(RetrievalTest, PrimaryFileIsSkippedByItsChangeTimeToo) {
    PassFirstRetrieval();
    directory.Plant("fw", Fw("a", 500) + Fw("b", 99));
    directory.SetChangeTime("fw", 99);
    EXPECT_EQ(Tags(100, 0), Texts());
}

TEST_F(RetrievalTest, SlackIsTheCacheLifetimeRounded) {
    directory.Plant("fw", Fw("a", 1));
    const struct {
        unsigned int lifetime;
        long slack;
    } rows[] = {{0, 0}, {499, 0}, {500, 1}, {1499, 1}, {1500, 2}, {3600000, 3600}};
    for (const auto& row : rows) {
        peer.cacheLifetimeMsec = row.lifetime;
        Delivered delivered;
        Retrieve(delivered, 0, 0);
        EXPECT_EQ(delivered.slack, row.slack);
    }
}

TEST_F(RetrievalTest, LinesInTheSlackAboveTheWindowDoNotEndTheScan) {
    SetSlack(10);
    directory.Plant("fw.1", Fw("a", 5) + Fw("b", 30) + Fw("c", 6));
    EXPECT_EQ(Tags(0, 20), Texts({"a", "c"}));
}

TEST_F(RetrievalTest, LineBeyondTheSlackEndsItsFileAndTheNextFileIsRead) {
    SetSlack(10);
    directory.Plant("fw.1", Fw("a", 5) + Fw("b", 31) + Fw("c", 6));
    directory.Plant("fw", Fw("d", 7));
    EXPECT_EQ(Tags(0, 20), Texts({"a", "d"}));
}

TEST_F(RetrievalTest, FileWhoseFirstLineIsBeyondTheSlackCostsThatLine) {
    SetSlack(10);
    directory.Plant("fw.1", Fw("a", 31) + Fw("b", 6));
    TraceScope trace;
    EXPECT_EQ(Tags(0, 20), Texts());
    EXPECT_TRUE(trace.Has("GetLogData() - Skipping all of file " + directory.Path("fw.1") +
                          " since it's newer than we want."));
}

TEST_F(RetrievalTest, FirstLineOfTheOtherKindDoesNotCountAsNewer) {
    SetSlack(10);
    directory.Plant("fw.1", Dpi("x", 99) + Fw("a", 6) + Fw("b", 31) + Fw("c", 6));
    TraceScope trace;
    EXPECT_EQ(Tags(0, 20), Texts({"a"}));
    EXPECT_TRUE(trace.Has("GetLogData() - Skipping rest of file " + directory.Path("fw.1") +
                          " since the timestamps are newer than we want."));
}

TEST_F(RetrievalTest, LinesOfTheOtherKindAreAllRead) {
    SetSlack(0);
    directory.Plant("fw.1", Dpi("x", 99) + Dpi("y", 99) + Fw("a", 6));
    EXPECT_EQ(Tags(0, 20), Texts({"a"}));
}

TEST_F(RetrievalTest, EndOfTheWindowNearTheLimitOfItsTypeIsFarAway) {
    directory.Plant("fw", Fw("a", 6));
    EXPECT_EQ(Tags(0, LONG_MAX), Texts({"a"}));
    EXPECT_EQ(Tags(LONG_MIN, LONG_MAX - 1), Texts({"a"}));
}

TEST_F(RetrievalTest, RepeatedRetrievalDeliversTheWindowAgain) {
    directory.Plant("fw", Fw("a", 5) + Fw("b", 6));
    EXPECT_EQ(Tags(5, 6), Texts({"a", "b"}));
    EXPECT_EQ(Tags(5, 6), Texts({"a", "b"}));
}

TEST_F(RetrievalTest, CallbackThatRefusesEndsTheRetrievalWithSuccess) {
    directory.Plant("fw.1", Fw("a", 1) + Fw("b", 2) + Fw("c", 3));
    directory.Plant("fw", Fw("d", 4));
    Delivered delivered;
    delivered.limit = 2;
    EXPECT_TRUE(Retrieve(delivered, 0, 0));
    EXPECT_EQ(delivered.texts.size(), 2u);
    EXPECT_FALSE(peer.firstRetrieval[0]);
    EXPECT_TRUE(peer.firstRetrieval[1]);
}

TEST_F(RetrievalTest, BookmarkMovesBeforeTheCallback) {
    directory.Plant("fw", Fw("a", 1) + Fw("b", 2) + Fw("c", 3));
    Delivered delivered;
    delivered.limit = 2;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(Bookmark(), 1);
}

TEST_F(RetrievalTest, NothingToReadIsASuccess) {
    EXPECT_EQ(Tags(0, 0), Texts());
    EXPECT_FALSE(peer.firstRetrieval[0]);
}

TEST_F(RetrievalTest, DirectoryThatCannotBeListedRaises3300AndFails) {
    log.SetLogFilePath(directory.Path("gone"));
    Delivered delivered;
    EXPECT_FALSE(Retrieve(delivered, 0, 0));
    EXPECT_EQ(Events(), Texts({"6005: " + directory.Path("gone") + "|No such file or directory",
                               "3300: No such file or directory"}));
    EXPECT_TRUE(peer.firstRetrieval[0]);
}

TEST_F(RetrievalTest, FileThatCannotBeOpenedRaises3001AndTheOthersAreRead) {
    std::filesystem::create_symlink("nowhere", directory.Path("fw.1"));
    directory.Plant("fw", Fw("a", 1));
    EXPECT_EQ(Tags(0, 0), Texts({"a"}));
    EXPECT_EQ(Events(), Texts({"3001: fw.1|No such file or directory"}));
}

TEST_F(RetrievalTest, NameOfAFileThatCannotBeOpenedIsCutTo64Characters) {
    std::filesystem::create_symlink("nowhere", directory.Path("fw" + std::string(100, 'x')));
    Tags(0, 0);
    EXPECT_EQ(Events(), Texts({"3001: fw" + std::string(62, 'x') + "|No such file or directory"}));
}

TEST_F(RetrievalTest, FileWhoseTimesCannotBeReadIsLoggedAndTheOthersAreRead) {
    std::filesystem::create_symlink("nowhere", directory.Path("fw.1"));
    directory.Plant("fw", Fw("a", 1));
    EXPECT_EQ(Tags(1, 0), Texts({"a"}));
    EXPECT_EQ(Events(), Texts());
    const Texts lines = TakeLogLines();
    ASSERT_EQ(lines.size(), 1u);
    const std::string start =
        "error: Failed to retrieve file times for '" + directory.Path("fw.1") + "'";
    EXPECT_EQ(lines[0].substr(0, start.size()), start);
}

TEST_F(RetrievalTest, StepsAreTraced) {
    log.SetDriverName("packet");
    directory.Plant("fw", Fw("a", 1));
    directory.Plant("fw.1", "");
    directory.SetChangeTime("fw.1", 1);
    TraceScope trace;
    Tags(5, 6);
    const Texts messages = trace.Take();
    ASSERT_EQ(messages.size(), 6u);
    EXPECT_EQ(messages[0], "GetLogData(5, 6, agent) for packet");
    EXPECT_EQ(messages[2], "GetLogData() - Looking at file " + directory.Path("fw.1"));
    EXPECT_EQ(messages[3], "GetLogData() - Skipping all of file " + directory.Path("fw.1") +
                               " since it's older than we want");
    EXPECT_EQ(messages[4], "GetLogData() - Looking at file " + directory.Path("fw"));
    EXPECT_EQ(messages[5], "GetLogData() - File is primary");
}

TEST_F(RetrievalTest, CallbackOfTheStreamNeedsAContext) {
    EXPECT_FALSE(OSTREL::GetLogDataCB(nullptr, 1, 2, "line"));
}

TEST_F(RetrievalTest, StreamHasALineFeedBehindEachRecordAndNoLimit) {
    std::string content;
    std::string expected;
    for (int i = 1; i <= 5003; ++i) {
        content += Fw("a", i);
        const std::string usec = std::to_string(i) + "000000";
        expected += "f, a, 1, " + usec + ", " + usec + "\n";
    }
    directory.Plant("fw", content);
    wxString result;
    wxStringOutputStream out(&result, wxConvUTF8);
    log.GetLogDataStream(OSTREL::DriverFirewall, 0, 0, "agent", 1, out);
    EXPECT_EQ(Utf8(result), expected);
}

TEST_F(RetrievalTest, StreamOfADirectoryThatCannotBeListedIsEmpty) {
    log.SetLogFilePath(directory.Path("gone"));
    wxString result;
    wxStringOutputStream out(&result, wxConvUTF8);
    log.GetLogDataStream(OSTREL::DriverFirewall, 0, 0, "agent", 10, out);
    EXPECT_EQ(result, "");
}

}  // namespace
