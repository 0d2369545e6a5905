// The old copies: shifting, removing, listing.

#include "LogDataFixture.h"
#include "MountNamespace.h"
#include "velm/Files.h"

namespace {

class FileSetTest : public LogDataTest {
protected:
    // Plants files whose content is their name.
    void PlantAll(const Texts& names) {
        for (const std::string& name : names)
            directory.Plant(name, name);
    }
    // The full paths of a listing, by their names.
    Texts List(const char* prefix) {
        wxArrayString files;
        const unsigned int count = log.GetAllLogFiles(prefix, files);
        EXPECT_EQ(count, files.size());
        Texts names;
        for (const wxString& path : files) {
            EXPECT_EQ(Utf8(path).substr(0, directory.Path().size() + 1), directory.Path() + "/");
            names.push_back(Utf8(path).substr(directory.Path().size() + 1));
        }
        return names;
    }
    static int Compare(const char* first, const char* second) {
        return OSTREL::LogData::VersionNumberCompare(first, second);
    }
};

TEST_F(FileSetTest, RotationShiftsEveryCopyAndDropsTheLast) {
    PlantAll({"fw", "fw.1", "fw.2", "fw.3", "fw.4", "fw.5", "fw.6", "fw.7", "fw.8", "fw.99"});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.2", "fw.3", "fw.4", "fw.5", "fw.6", "fw.7"}));
    EXPECT_EQ(File("fw.1"), "fw");
    EXPECT_EQ(File("fw.2"), "fw.1");
    EXPECT_EQ(File("fw.7"), "fw.6");
}

TEST_F(FileSetTest, MoreCopiesThanCanBeCountedThroughMoveAtOnce) {
    log.SetNumberOfOldCopies(2147483647);
    PlantAll({"fw", "fw.1", "fw.7", "fw.2147483646"});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.2", "fw.2147483647", "fw.8"}));
}

TEST_F(FileSetTest, NumbersThatAreNotWrittenPlainlyAreNoCopies) {
    log.SetNumberOfOldCopies(9);
    PlantAll({"fw.07", "fw.+1", "fw.2x", "fw.-3", "fw."});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.", "fw.+1", "fw.-3", "fw.07", "fw.2x"}));
}

TEST_F(FileSetTest, GapInTheSeriesIsNoFault) {
    PlantAll({"fw", "fw.2", "fw.5"});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.3", "fw.6"}));
    EXPECT_EQ(File("fw.6"), "fw.5");
    EXPECT_EQ(Events(), Texts());
}

TEST_F(FileSetTest, GoingFromSevenToThreeCopiesDeletesBeforeTheShift) {
    PlantAll({"fw", "fw.1", "fw.2", "fw.3", "fw.4", "fw.5", "fw.6", "fw.7"});
    log.SetNumberOfOldCopies(3);
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.2", "fw.3"}));
    EXPECT_EQ(File("fw.3"), "fw.2");
}

TEST_F(FileSetTest, OneCopyIsOverwritten) {
    PlantAll({"fw", "fw.1"});
    log.SetNumberOfOldCopies(1);
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1"}));
    EXPECT_EQ(File("fw.1"), "fw");
}

TEST_F(FileSetTest, NamesWithoutANumberStay) {
    PlantAll({"fw", "fw.bak", "fwx", "fwx.bak", "fw.old.bak"});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.bak", "fw.old.bak", "fwx", "fwx.bak"}));
}

TEST_F(FileSetTest, EveryNameWithThePrefixAndAHighNumberGoes) {
    PlantAll({"fw", "fwx.7", "fw.bak.9", "fw.8x", "fwx.6", "other.9"});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fwx.6", "other.9"}));
}

TEST_F(FileSetTest, NoCopiesToKeepDeletesTheCurrentFile) {
    PlantAll({"fw", "fw.1"});
    log.SetNumberOfOldCopies(0);
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_TRUE(directory.Names().empty());
}

TEST_F(FileSetTest, NoCopiesToKeepDeletesEverythingWithThePrefix) {
    PlantAll({"fw", "fw.bak", "fwx", "gw"});
    log.SetNumberOfOldCopies(0);
    EXPECT_TRUE(log.RemoveOldFiles(false));
    EXPECT_EQ(directory.Names(), Texts({"gw"}));
}

TEST_F(FileSetTest, LogWithoutCopiesStartsOverAtItsSize) {
    log.SetNumberOfOldCopies(0);
    log.SetLogFileSizeKB(1);
    Cache(std::string(2000, 'a'));
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_TRUE(directory.Names().empty());
    Cache("b");
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(File(), CachedLine("b"));
}

TEST_F(FileSetTest, NextRecordMakesANewCurrentFile) {
    log.SetLogFileSizeKB(0);
    Cache("a");
    log.FlushBufferedData(true);
    log.SetLogFileSizeKB(1024);
    Cache("b");
    log.FlushBufferedData(true);
    EXPECT_EQ(File("fw.1"), CachedLine("a"));
    EXPECT_EQ(File("fw"), CachedLine("b"));
}

TEST_F(FileSetTest, NameWithADotLosesItsExtensionAndItsCopies) {
    log.SetLogFileName("a.log");
    PlantAll({"a.log"});
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(directory.Names(), Texts({"a.1"}));
    EXPECT_EQ(List("a.log"), Texts());
}

TEST_F(FileSetTest, RotationResetsTheBookmarksOfBothKindsOnly) {
    dom.Set("plg.ostrel.lastline.packet", 11);
    dom.Set("plg.ostrel.lastline.payload", 12);
    dom.Set("plg.ostrel.lastline.pcap", 13);
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(Setting("plg.ostrel.lastline.packet"), 0);
    EXPECT_EQ(Setting("plg.ostrel.lastline.payload"), 0);
    EXPECT_EQ(Setting("plg.ostrel.lastline.pcap"), 13);
}

TEST_F(FileSetTest, MovedFilesAreSecured) {
    Texts secured;
    VelmCore::SetFileObserver([&](const wxString& path) { secured.push_back(Utf8(path)); });
    PlantAll({"fw", "fw.1"});
    log.RotateFiles();
    VelmCore::SetFileObserver({});
    EXPECT_EQ(secured, Texts({directory.Path("fw.2"), directory.Path("fw.1")}));
}

TEST_F(FileSetTest, FailedRenameRaises6007AndTheShiftGoesOn) {
    PlantAll({"fw", "fw.2"});
    std::filesystem::create_directory(directory.Path("fw.3"));
    EXPECT_TRUE(log.RotateFiles());
    EXPECT_EQ(Events(), Texts({"6007: " + directory.Path("fw.2") + "|" + directory.Path("fw.3") +
                               "|Is a directory"}));
    EXPECT_EQ(directory.Names(), Texts({"fw.1", "fw.2", "fw.3"}));
    EXPECT_EQ(File("fw.1"), "fw");
}

TEST_F(FileSetTest, MissingDirectoryRaises6005Then3300AndRotatesNothing) {
    const std::string gone = directory.Path("gone");
    log.SetLogFilePath(gone);
    dom.Set("plg.ostrel.lastline.packet", 11);
    EXPECT_FALSE(log.RotateFiles());
    EXPECT_EQ(Events(), Texts({"6005: " + gone + "|No such file or directory",
                               "3300: No such file or directory"}));
    EXPECT_EQ(Setting("plg.ostrel.lastline.packet"), 11);
}

TEST_F(FileSetTest, FailedRemovalRaises6006AndTheNextFileGoes) {
    PlantAll({"fw", "fw.7", "fw.8", "fw.9"});
    MountNamespace mounts;
    if (!mounts.IsUsable()) GTEST_SKIP() << mounts.WhyNot();
    ASSERT_TRUE(mounts.Bind("/dev/null", directory.Path("fw.9")));
    const std::string event = "6006: " + directory.Path("fw.9") + "|Device or resource busy";
    EXPECT_TRUE(log.RemoveOldFiles(true));
    EXPECT_EQ(Events(), Texts({event}));
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.7", "fw.9"}));
    EXPECT_TRUE(log.RemoveOldFiles(false));
    EXPECT_EQ(Events(), Texts({event}));
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.9"}));
}

TEST_F(FileSetTest, OldestCopyAloneIsTheOneWithTheHighestNumber) {
    PlantAll({"fw", "fw.2", "fw.9", "fw.10", "fw.bak"});
    EXPECT_TRUE(log.RemoveOldestFile());
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.2", "fw.9", "fw.bak"}));
    EXPECT_TRUE(log.RemoveOldestFile());
    EXPECT_TRUE(log.RemoveOldestFile());
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.bak"}));
}

TEST_F(FileSetTest, CurrentFileAloneIsKeptAndTheResultIsTrue) {
    PlantAll({"fw"});
    EXPECT_TRUE(log.RemoveOldestFile());
    EXPECT_EQ(directory.Names(), Texts({"fw"}));
}

TEST_F(FileSetTest, WithoutCopiesToKeepTheCurrentFileGoesLast) {
    PlantAll({"fw", "fw.1"});
    log.SetNumberOfOldCopies(0);
    EXPECT_TRUE(log.RemoveOldestFile());
    EXPECT_EQ(directory.Names(), Texts({"fw"}));
    EXPECT_TRUE(log.RemoveOldestFile());
    EXPECT_TRUE(directory.Names().empty());
}

TEST_F(FileSetTest, ListIsSortedByNumberAndHoldsEveryNameWithThePrefix) {
    PlantAll({"fw.10", "fw.9", "fw.1", "fw.2", "fwx.5", "gw"});
    EXPECT_EQ(List("fw"), Texts({"fw.1", "fw.2", "fwx.5", "fw.9", "fw.10"}));
}

TEST_F(FileSetTest, ListForgetsWhatTheArrayHeld) {
    PlantAll({"fw"});
    wxArrayString files;
    files.push_back("former");
    EXPECT_EQ(log.GetAllLogFiles("fw", files), 1u);
    EXPECT_EQ(files[0], directory.Path("fw"));
}

TEST_F(FileSetTest, HiddenFilesDirectoriesAndTheirFilesAreNotListed) {
    PlantAll({".fw", "fw"});
    std::filesystem::create_directory(directory.Path("fw.1"));
    directory.Plant("fw.1/fw.2", "");
    EXPECT_EQ(List("fw"), Texts({"fw"}));
    EXPECT_EQ(List(""), Texts({"fw"}));
}

TEST_F(FileSetTest, EmptySetIsNoFailure) {
    EXPECT_EQ(List("fw"), Texts());
    EXPECT_EQ(Events(), Texts());
}

TEST_F(FileSetTest, NumbersCompareAsNumbers) {
    EXPECT_LT(Compare("/d/fw", "/d/fw.1"), 0);
    EXPECT_LT(Compare("/d/fw.9", "/d/fw.10"), 0);
    EXPECT_EQ(Compare("/d/fw.10", "/d/fw.7"), 3);
    EXPECT_EQ(Compare("/d/fw.07", "/d/fw.7"), 0);
}

TEST_F(FileSetTest, ExtensionsThatAreNoNumbersCompareAsZero) {
    EXPECT_EQ(Compare("/d/fw", "/d/fw.bak"), 0);
    EXPECT_EQ(Compare("/d/fw.5x", "/d/fw"), 0);
    EXPECT_EQ(Compare("/d.9/fw", "/d/fw"), 0);
}

TEST_F(FileSetTest, StepsAreTraced) {
    log.SetDriverName("packet");
    log.SetNumberOfOldCopies(1);
    PlantAll({"fw", "fw.4"});
    TraceScope trace;
    log.RotateFiles();
    EXPECT_EQ(trace.Take(), Texts({"RotateFiles() for packet", "RemoveOldFiles() for packet",
                                   "Deleted log file " + directory.Path("fw.4"),
                                   "RotateFiles() - renaming " + directory.Path("fw") + " to " +
                                       directory.Path("fw.1")}));
    log.RemoveOldestFile();
    EXPECT_EQ(trace.Take().front(), "RemoveOldestFile() for packet");
}

}  // namespace
