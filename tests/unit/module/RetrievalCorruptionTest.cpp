// Bytes that no log line holds.

#include <wx/log.h>

#include "RetrievalFixture.h"

namespace {

using namespace std::string_literals;

class CorruptionTest : public RetrievalTest {
protected:
    std::string Warning(const std::string& name) const {
        return "warning: !6001!Non-printable data encountered in log file '" +
               directory.Path(name) +
               "'. The file may be corrupt, and if so, it should be deleted.";
    }
};

TEST_F(CorruptionTest, BadLineIsDroppedTogetherWithTheNext) {
    directory.Plant("fw", Fw("a", 1) + Fw("b\x01", 2) + Fw("swallowed", 3) + Fw("c", 4));
    EXPECT_EQ(Tags(0, 0), Texts({"a", "c"}));
    EXPECT_EQ(TakeLogLines(), Texts({Warning("fw")}));
}

TEST_F(CorruptionTest, PairCountsAsOneLine) {
    directory.Plant("fw", Fw("a", 1) + Fw("b\x01", 2) + Fw("swallowed", 3) + Fw("c", 4));
    Tags(0, 0);
    EXPECT_EQ(Bookmark(), 2);
}

TEST_F(CorruptionTest, BadFileStaysAndIsReadOn) {
    directory.Plant("fw.1", Fw("b\xC3\xBC", 2) + Fw("swallowed", 3) + Fw("c", 4));
    directory.Plant("fw", Fw("d", 5));
    EXPECT_EQ(Tags(0, 0), Texts({"c", "d"}));
    EXPECT_TRUE(directory.Has("fw.1"));
}

TEST_F(CorruptionTest, OneFileWarnsOnceUntilAnotherBadFileWasMet) {
    directory.Plant("fw", Fw("\x01", 1) + "\n" + Fw("\x01", 1));
    Tags(0, 0);
    Tags(0, 0);
    EXPECT_EQ(TakeLogLines(), Texts({Warning("fw")}));
    EXPECT_EQ(peer.lastCorruptFile, directory.Path("fw"));
    directory.Plant("fw.1", Fw("\x01", 1));
    Tags(0, 0);
    EXPECT_EQ(TakeLogLines(), Texts({Warning("fw.1"), Warning("fw")}));
}

TEST_F(CorruptionTest, SuppressedWarningStillStoresThePath) {
    directory.Plant("fw", Fw("\x01", 1));
    const wxLogLevel former = wxLog::GetLogLevel();
    wxLog::SetLogLevel(wxLOG_Error);
    Tags(0, 0);
    wxLog::SetLogLevel(former);
    EXPECT_EQ(TakeLogLines(), Texts());
    EXPECT_EQ(peer.lastCorruptFile, directory.Path("fw"));
    Tags(0, 0);
    EXPECT_EQ(TakeLogLines(), Texts());
}

TEST_F(CorruptionTest, BadBytesOfTheOtherKindWarnAsWell) {
    directory.Plant("fw", Dpi("\x7F", 1) + Dpi("x", 2) + Fw("a", 3));
    EXPECT_EQ(Tags(0, 0), Texts({"a"}));
    EXPECT_EQ(TakeLogLines(), Texts({Warning("fw")}));
}

TEST_F(CorruptionTest, PathInTheWarningIsCutTo256Characters) {
    std::string path = directory.Path() + "/" + std::string(200, 'd');
    std::filesystem::create_directory(path);
    log.SetLogFilePath(path);
    log.SetLogFileName(std::string(100, 'n'));
    directory.Plant(std::string(200, 'd') + "/" + std::string(100, 'n'), Fw("\x01", 1));
    Tags(0, 0);
    EXPECT_EQ(TakeLogLines(),
              Texts({"warning: !6001!Non-printable data encountered in log file '" +
                     (path + "/" + std::string(100, 'n')).substr(0, 256) +
                     "'. The file may be corrupt, and if so, it should be deleted."}));
}

TEST_F(CorruptionTest, BadLastLineIsJudgedByWhatStandsInFrontOfTheBadByte) {
    directory.Plant("fw", Fw("a", 1) + "2025/11/13, 21:35:29, f, bad, 7000000, x\x01, 9000000");
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"f, a, 1, 1000000, 1000000"}));
    directory.Plant("fw", "2025/11/13, 21:35:29, f, bad, 7000000\x01, 9000000");
    Delivered again;
    Retrieve(again, 0, 0);
    EXPECT_EQ(again.texts, Texts({"f, bad, 7000000\x01, 9000000"}));
    EXPECT_EQ(again.times, std::vector<long>({7}));
}

TEST_F(CorruptionTest, BadLastLineKeepsItsLineFeed) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, bad, 7000000\x01\n");
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"f, bad, 7000000\x01\n"}));
}

TEST_F(CorruptionTest, BadLineInFrontOfALineWithoutAFeedIsJudgedWithItsOwnBytes) {
    directory.Plant("fw",
                    "2025/11/13, 21:35:29, f, bad, 7000000\x01\n"
                    "2025/11/13, 21:35:29, f, b, 8000000");
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"f, bad, 7000000\x01\n"}));
}

TEST_F(CorruptionTest, BadLastLineMovesTheBookmark) {
    directory.Plant("fw", Fw("a", 1) + "2025/11/13, 21:35:29, f, bad, 7000000\x01");
    Tags(0, 0);
    EXPECT_EQ(Bookmark(), 1);
}

TEST_F(CorruptionTest, BadByteInFrontOfTheThirdCommaLeavesNoRecord) {
    directory.Plant("fw",
                    "2025/11/13, 21:35:29, \x01"
                    "f, bad, 7000000");
    EXPECT_EQ(Tags(0, 0), Texts());
}

TEST_F(CorruptionTest, BadByteInAPieceOfALongLineDropsTheRestOfThatLineOnly) {
    directory.Plant("fw", "\x01" + std::string(9999, 'x') + "\n" + Fw("a", 1));
    EXPECT_EQ(Tags(0, 0), Texts({"a"}));
    EXPECT_EQ(Bookmark(), 1);
}

TEST_F(CorruptionTest, ZeroByteEndsTheTextAndIsNoCorruption) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 7000000\0, 9\x01\n"s + Fw("b", 8));
    Delivered delivered;
    Retrieve(delivered, 0, 0);
    EXPECT_EQ(delivered.texts, Texts({"f, a, 7000000", "f, b, 1, 8000000, 8000000"}));
    EXPECT_EQ(TakeLogLines(), Texts());
}

TEST_F(CorruptionTest, ByteBehindACarriageReturnIsNoCorruption) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 7000000\r\x01\n" + Fw("b", 8));
    EXPECT_EQ(Tags(0, 0), Texts({"a", "b"}));
    EXPECT_EQ(TakeLogLines(), Texts());
}

}  // namespace
