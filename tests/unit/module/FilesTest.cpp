// The current file: opening, writing, closing.

#include <signal.h>
#include <sys/resource.h>

#include "LogDataFixture.h"
#include "velm/Files.h"

namespace {

class FilesTest : public LogDataTest {
protected:
    FilesTest() {
        VelmCore::SetFileObserver([this](const wxString& path) { secured.push_back(Utf8(path)); });
    }
    ~FilesTest() override { VelmCore::SetFileObserver({}); }

    bool WriteLine(const std::string& text) {
        return log.WriteRecord(text, {0, 1000000, 0, 1000000, 1});
    }
    mode_t Mode(const std::string& path) const {
        struct stat status = {};
        stat(path.c_str(), &status);
        return status.st_mode & 07777;
    }

    Texts secured;  // paths that the core was asked to secure
};

TEST_F(FilesTest, OpeningMakesTheFileAndSecuresIt) {
    EXPECT_TRUE(log.InitializeLogFile());
    EXPECT_TRUE(peer.logFile.IsOpened());
    EXPECT_EQ(Mode(directory.Path("fw")), 0600u);
    EXPECT_EQ(secured, Texts({directory.Path("fw")}));
}

TEST_F(FilesTest, OpeningTwiceDoesNothingMore) {
    log.InitializeLogFile();
    const int fd = peer.logFile.fd();
    EXPECT_TRUE(log.InitializeLogFile());
    EXPECT_EQ(peer.logFile.fd(), fd);
    EXPECT_EQ(secured.size(), 1u);
}

TEST_F(FilesTest, FileWithContentIsAppendedToAndNotSecuredAgain) {
    directory.Plant("fw", "first\n");
    EXPECT_TRUE(WriteLine("a"));
    EXPECT_EQ(File(), "first\n" + CachedLine("a"));
    EXPECT_EQ(secured, Texts());
}

TEST_F(FilesTest, EmptyFileCountsAsNew) {
    directory.Plant("fw", "");
    log.InitializeLogFile();
    EXPECT_EQ(secured, Texts({directory.Path("fw")}));
}

TEST_F(FilesTest, MissingDirectoryIsMadeWithItsParents) {
    log.SetLogFilePath(directory.Path("a/b/c"));
    EXPECT_TRUE(log.InitializeLogFile());
    EXPECT_EQ(Mode(directory.Path("a/b")), 0755u);
    EXPECT_EQ(secured, Texts({directory.Path("a/b/c"), directory.Path("a/b/c/fw")}));
}

TEST_F(FilesTest, ExistingDirectoryIsLeftAlone) {
    const mode_t before = Mode(directory.Path());
    log.InitializeLogFile();
    EXPECT_EQ(Mode(directory.Path()), before);
}

TEST_F(FilesTest, DirectoryThatCannotBeMadeRaises6003) {
    directory.Plant("file", "");
    log.SetLogFilePath(directory.Path("file/logs"));
    EXPECT_FALSE(log.InitializeLogFile());
    EXPECT_EQ(Events(), Texts({"6003: " + directory.Path("file/logs")}));
}

TEST_F(FilesTest, FileInThePlaceOfTheDirectoryRaises6003) {
    directory.Plant("file", "");
    log.SetLogFilePath(directory.Path("file"));
    EXPECT_FALSE(log.InitializeLogFile());
    EXPECT_EQ(Events(), Texts({"6003: " + directory.Path("file")}));
}

TEST_F(FilesTest, DirectoryWithTooLongANameRaises6003CutTo128Characters) {
    log.SetLogFilePath("/" + std::string(300, 'd'));
    EXPECT_FALSE(log.InitializeLogFile());
    EXPECT_EQ(Events(), Texts({"6003: /" + std::string(127, 'd')}));
}

TEST_F(FilesTest, FileThatCannotBeOpenedRaises6001) {
    std::filesystem::create_directory(directory.Path("fw"));
    EXPECT_FALSE(log.InitializeLogFile());
    EXPECT_EQ(Events(), Texts({"6001: " + directory.Path("fw")}));
    EXPECT_FALSE(WriteLine("a"));
    EXPECT_EQ(Events(), Texts({"6001: " + directory.Path("fw")}));
}

TEST_F(FilesTest, LineIsTimeStampTextAndTail) {
    EXPECT_TRUE(log.WriteRecord("text", {5, 1763069729999999, 6, 1763069730000001, 4294967295}));
    EXPECT_EQ(File(),
              "2025/11/13, 21:35:29, text, 4294967295, 1763069730000001, 1763069729999999\n");
}

TEST_F(FilesTest, TimesAreWrittenUnsigned) {
    log.WriteRecord("text", {0, 0, 0, -1, 0});
    EXPECT_EQ(File(), "1970/01/01, 00:00:00, text, 0, 18446744073709551615, 0\n");
}

TEST_F(FilesTest, TextIsWrittenWithItsZeroBytes) {
    log.WriteRecord(std::string("a\0b", 3), {0, 0, 0, 0, 1});
    EXPECT_EQ(File(), std::string("1970/01/01, 00:00:00, a\0b, 1, 0, 0\n", 35));
}

TEST_F(FilesTest, RawRecordIsTheTextAlone) {
    peer.rawRecords = true;
    EXPECT_TRUE(WriteLine("raw"));
    EXPECT_EQ(File(), "raw");
}

TEST_F(FilesTest, FileHasNoHeader) {
    EXPECT_TRUE(log.WriteFileHeader());
    EXPECT_TRUE(directory.Names().empty());
}

TEST_F(FilesTest, NothingToWriteSucceedsAtOnce) {
    EXPECT_TRUE(log.WriteRawData(0, nullptr));
}

TEST_F(FilesTest, OtherWriteErrorRaises6002AndKeepsWhatWasWritten) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit former;
    getrlimit(RLIMIT_FSIZE, &former);
    rlimit limit = former;
    limit.rlim_cur = 10;
    setrlimit(RLIMIT_FSIZE, &limit);
    const bool written = WriteLine("a");
    setrlimit(RLIMIT_FSIZE, &former);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_FALSE(written);
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_EQ(File(), "1970/01/01");
    EXPECT_EQ(Events(), Texts({"6002: " + directory.Path("fw")}));
}

TEST_F(FilesTest, EachFailedWriteRaisesItsEventAnew) {
    log.InitializeLogFile();
    for (int i = 0; i < 2; ++i) {
        wxFile reader(directory.Path("fw"));  // a descriptor that cannot be written to
        peer.logFile.Close();
        peer.logFile.Attach(reader.Detach());
        EXPECT_FALSE(WriteLine("a"));
        EXPECT_EQ(Events(), Texts({"6002: " + directory.Path("fw")}));
    }
}

TEST_F(FilesTest, FileThatIsNotOpenNeedsNoClosing) {
    EXPECT_TRUE(log.CloseAndRotateFile());
}

TEST_F(FilesTest, LengthThatCannotBeReadRaises6004) {
    log.InitializeLogFile();
    close(peer.logFile.fd());
    EXPECT_FALSE(log.CloseAndRotateFile());
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_EQ(Events(), Texts({"6004: " + directory.Path("fw")}));
}

TEST_F(FilesTest, FileOfExactlyTheSizeRotates) {
    directory.Plant("fw", std::string(2048, '.'));
    log.SetLogFileSizeKB(2);
    log.InitializeLogFile();
    EXPECT_TRUE(log.CloseAndRotateFile());
    EXPECT_EQ(directory.Names(), Texts({"fw.1"}));
}

TEST_F(FilesTest, FileOfOneByteLessDoesNotRotate) {
    directory.Plant("fw", std::string(2047, '.'));
    log.SetLogFileSizeKB(2);
    log.InitializeLogFile();
    EXPECT_TRUE(log.CloseAndRotateFile());
    EXPECT_EQ(directory.Names(), Texts({"fw"}));
}

TEST_F(FilesTest, SizeOfZeroOrBelowRotatesAtEveryFlushThatWrote) {
    log.SetLogFileSizeKB(0);
    Cache("a");
    log.FlushBufferedData(true);
    EXPECT_EQ(directory.Names(), Texts({"fw.1"}));
    log.SetLogFileSizeKB(-1);
    Cache("b");
    log.FlushBufferedData(true);
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.2"}));
    EXPECT_EQ(File("fw.2"), CachedLine("a"));
}

TEST_F(FilesTest, OneFlushCanPassTheLimit) {
    log.SetLogFileSizeKB(1);
    for (char c = 'a'; c <= 'z'; ++c)
        Cache(std::string(100, c));
    log.FlushBufferedData(true);
    EXPECT_EQ(directory.Names(), Texts({"fw.1"}));
    EXPECT_GT(File("fw.1").size(), 3000u);
}

}  // namespace
