// A full disk: a device that is always full, and a small file system that really fills up.

#include "LogDataFixture.h"
#include "MountNamespace.h"

namespace {

constexpr const char* kWarning =
    "warning: Out of space on the log file disk. Trying to make room by deleting old log files.";

class FullDiskTest : public LogDataTest {
protected:
    bool WriteLine(const std::string& text) {
        return log.WriteRecord(text, {0, 1000000, 0, 1000000, 1});
    }
};

// The current file is the device whose every write finds the disk full.
class AlwaysFullTest : public FullDiskTest {
protected:
    AlwaysFullTest() { std::filesystem::create_symlink("/dev/full", directory.Path("fw")); }
};

TEST_F(AlwaysFullTest, WithoutOldCopiesItWarnsOnceAndEachRecordTriesAgain) {
    EXPECT_FALSE(WriteLine("a"));
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_TRUE(peer.outOfSpace);
    EXPECT_EQ(TakeLogLines(), Texts({kWarning}));
    EXPECT_EQ(Events(), Texts({"6009: "}));

    EXPECT_FALSE(WriteLine("b"));
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_EQ(TakeLogLines(), Texts());
    EXPECT_EQ(Events(), Texts());
}

TEST_F(AlwaysFullTest, EachFailedWriteDeletesOneCopyTheOldestFirst) {
    for (const char* name : {"fw.1", "fw.2", "fw.10"})
        directory.Plant(name, "x");
    EXPECT_FALSE(WriteLine("a"));
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.1", "fw.2"}));
    EXPECT_FALSE(WriteLine("b"));
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.1"}));
}

TEST_F(AlwaysFullTest, RecordIsLostAndTheFlushFails) {
    Cache("a");
    EXPECT_FALSE(log.FlushBufferedData(true));
    EXPECT_TRUE(peer.cache.empty());
}

TEST_F(AlwaysFullTest, FullDiskRotatesNothing) {
    log.SetLogFileSizeKB(0);
    Cache("a");
    log.FlushBufferedData(true);
    EXPECT_EQ(directory.Names(), Texts({"fw"}));
}

TEST_F(AlwaysFullTest, WithoutCopiesToKeepTheCurrentFileIsDeletedAndTheNextRecordIsWritten) {
    log.SetNumberOfOldCopies(0);
    EXPECT_FALSE(WriteLine("a"));
    EXPECT_TRUE(directory.Names().empty());
    EXPECT_TRUE(WriteLine("b"));
    EXPECT_EQ(File(), CachedLine("b"));
    EXPECT_FALSE(peer.outOfSpace);
}

TEST_F(AlwaysFullTest, SuccessfulWriteMakesTheNextFullDiskWarnAgain) {
    WriteLine("a");
    Events();
    std::filesystem::remove(directory.Path("fw"));
    EXPECT_TRUE(WriteLine("b"));
    log.CloseAndRotateFile();
    EXPECT_FALSE(peer.outOfSpace);
    std::filesystem::remove(directory.Path("fw"));
    std::filesystem::create_symlink("/dev/full", directory.Path("fw"));
    EXPECT_FALSE(WriteLine("c"));
    EXPECT_EQ(Events(), Texts({"6009: "}));
}

TEST_F(AlwaysFullTest, NothingToWriteDoesNotEndTheEpisode) {
    WriteLine("a");
    EXPECT_TRUE(log.WriteRawData(0, nullptr));
    EXPECT_TRUE(peer.outOfSpace);
}

TEST_F(AlwaysFullTest, CopiesThatCannotBeListedRaiseTheirEventsAndAWriteError) {
    peer.logFile.Open("/dev/full", wxFile::write);
    log.SetLogFilePath(directory.Path("gone"));
    EXPECT_FALSE(log.WriteRawData(1, "x"));
    EXPECT_FALSE(peer.logFile.IsOpened());
    EXPECT_EQ(Events(),
              Texts({"6009: ", "6005: " + directory.Path("gone") + "|No such file or directory",
                     "3300: No such file or directory", "6002: " + directory.Path("gone/fw")}));
}

// A file system of 64 KiB, 16 blocks of which each file takes whole ones.
class SmallDiskTest : public FullDiskTest {
protected:
    void SetUp() override {
        if (!mounts.IsUsable()) GTEST_SKIP() << mounts.WhyNot();
        ASSERT_TRUE(mounts.SmallDisk(directory.Path(), "64k"));
    }
    void PlantBlocks(const std::string& name, size_t blocks) {
        directory.Plant(name, std::string(4096 * blocks, '.'));
    }
    // A line of 4,096 bytes.
    static std::string BlockText() { return std::string(4096 - CachedLine("").size(), 'x'); }

    MountNamespace mounts;
};

TEST_F(SmallDiskTest, OldestCopiesMakeRoomAndTheLinesAreWhole) {
    PlantBlocks("fw.1", 4);
    PlantBlocks("fw.2", 4);
    PlantBlocks("fw.3", 4);
    const std::string line = CachedLine(BlockText());
    std::string written;
    for (int i = 0; i < 8; ++i) {  // 4 blocks are left, fw.3 makes room for 4 more
        ASSERT_TRUE(WriteLine(BlockText())) << i;
        written += line;
        log.CloseAndRotateFile();
    }
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.1", "fw.2"}));
    EXPECT_EQ(File(), written);
    EXPECT_EQ(Events(), Texts({"6009: "}));

    ASSERT_TRUE(WriteLine(BlockText()));  // the next full disk, since a write succeeded
    EXPECT_EQ(directory.Names(), Texts({"fw", "fw.1"}));
    EXPECT_EQ(Events(), Texts({"6009: "}));
}

TEST_F(SmallDiskTest, LineThatFitsOnlyInPartStaysInPart) {
    PlantBlocks("ballast", 15);
    EXPECT_FALSE(WriteLine(BlockText() + BlockText()));
    EXPECT_EQ(File(), CachedLine(BlockText() + BlockText()).substr(0, 4096));
    EXPECT_EQ(Events(), Texts({"6009: "}));
    EXPECT_FALSE(peer.logFile.IsOpened());
}

TEST_F(SmallDiskTest, LineThatFitsInPartIsCompletedWhenACopyMakesRoom) {
    PlantBlocks("ballast", 13);
    PlantBlocks("fw.1", 1);
    PlantBlocks("fw.2", 1);
    EXPECT_TRUE(WriteLine(BlockText() + BlockText()));
    EXPECT_EQ(File(), CachedLine(BlockText() + BlockText()));
    EXPECT_EQ(directory.Names(), Texts({"ballast", "fw", "fw.1"}));
}

TEST_F(SmallDiskTest, PartBetweenTwoFullDisksEarnsAnotherDeletion) {
    PlantBlocks("ballast", 13);
    PlantBlocks("fw.1", 1);
    PlantBlocks("fw.2", 1);
    const std::string text = BlockText() + std::string(8192, 'y');  // a line of three blocks
    EXPECT_TRUE(WriteLine(text));
    EXPECT_EQ(directory.Names(), Texts({"ballast", "fw"}));
    EXPECT_EQ(File(), CachedLine(text));
    EXPECT_EQ(Events(), Texts({"6009: "}));
}

TEST_F(SmallDiskTest, LoggingTakesUpByItselfOnceThereIsRoom) {
    PlantBlocks("ballast", 16);
    for (int i = 0; i < 3; ++i) {
        Cache("lost");
        EXPECT_FALSE(log.FlushBufferedData(true));
    }
    EXPECT_EQ(Events(), Texts({"6009: "}));
    std::filesystem::remove(directory.Path("ballast"));
    Cache("kept");
    EXPECT_TRUE(log.FlushBufferedData(true));
    EXPECT_EQ(File(), CachedLine("kept"));
    EXPECT_EQ(Events(), Texts());
}

TEST_F(SmallDiskTest, NextEpisodeWarnsAgain) {
    PlantBlocks("ballast", 16);
    WriteLine("lost");
    std::filesystem::remove(directory.Path("ballast"));
    WriteLine("kept");
    log.CloseAndRotateFile();
    PlantBlocks("ballast", 15);
    Events();
    TakeLogLines();
    EXPECT_FALSE(WriteLine(std::string(8192, 'x')));
    EXPECT_EQ(Events(), Texts({"6009: "}));
    EXPECT_EQ(TakeLogLines(), Texts({kWarning}));
}

}  // namespace
