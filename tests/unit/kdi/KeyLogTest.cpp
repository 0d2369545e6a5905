#include "KeyLog.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "CaptureBuilder.h"

using namespace KdiTest;
using Kdi::KeyLog;

namespace {

// Lets no file grow beyond so many bytes, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_Handler(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit limit = {bytes, m_Before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_Before);
        signal(SIGXFSZ, m_Handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*const m_Handler)(int);
    rlimit m_Before = {};
};

class KeyLogTest : public testing::Test {
protected:
    KeyLogTest() { std::remove(Path().c_str()); }
    const std::string& Path() const { return m_File.Path(); }
    std::string OpenError(const std::string& path) {
        KeyLog log;
        std::string error;
        EXPECT_FALSE(log.Open(path, error));
        return error;
    }
    static bool Append(KeyLog& log) {
        const Bytes encrypted = {0, 1, 2, 3, 0xFC, 0xFD, 0xFE, 0xFF};
        return log.Append(encrypted.data(), Bytes(32, 0xAB).data(), Bytes(48, 0x3C).data());
    }
    std::string Content() const {
        std::ifstream file(Path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static std::string Times(const std::string& text, int count) {
        std::string all;
        for (int i = 0; i < count; ++i)
            all += text;
        return all;
    }
    const std::string m_Lines = "RSA 00010203fcfdfeff " + Times("3c", 48) + "\nPMS_CLIENT_RANDOM " +
                                Times("ab", 32) + " " + Times("3c", 48) + "\n";

private:
    CaptureBuilder m_File;
};

}  // namespace

TEST_F(KeyLogTest, SecretIsNotedUnderBothNames) {
    KeyLog log;
    std::string error;
    ASSERT_TRUE(log.Open(Path(), error)) << error;
    EXPECT_TRUE(Append(log));
    EXPECT_EQ(Content(), m_Lines);
}

TEST_F(KeyLogTest, FileIsMadeForItsOwnerAlone) {
    const mode_t mask = umask(0);
    KeyLog log;
    std::string error;
    ASSERT_TRUE(log.Open(Path(), error)) << error;
    umask(mask);
    struct stat status = {};
    ASSERT_EQ(stat(Path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(KeyLogTest, LinesOfTwoOpeningsStandBehindEachOther) {
    for (int i = 0; i < 2; ++i) {
        KeyLog log;
        std::string error;
        ASSERT_TRUE(log.Open(Path(), error)) << error;
        EXPECT_TRUE(Append(log));
    }
    EXPECT_EQ(Content(), m_Lines + m_Lines);
}

TEST_F(KeyLogTest, TornLineIsEndedFirst) {
    std::ofstream(Path()) << "RSA 0011";
    KeyLog log;
    std::string error;
    ASSERT_TRUE(log.Open(Path(), error)) << error;
    EXPECT_TRUE(Append(log));
    EXPECT_TRUE(Append(log));
    EXPECT_EQ(Content(), "RSA 0011\n" + m_Lines + m_Lines);
}

TEST_F(KeyLogTest, LineWithoutRoomIsToldAndEndedBeforeTheNextOne) {
    KeyLog log;
    std::string error;
    ASSERT_TRUE(log.Open(Path(), error)) << error;
    {
        const FileSizeLimit limit(50);
        EXPECT_FALSE(Append(log));
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_FALSE(Append(log));
        EXPECT_EQ(errno, EFBIG);
    }
    EXPECT_TRUE(Append(log));
    EXPECT_EQ(Content(), m_Lines.substr(0, 50) + "\n" + m_Lines);
}

TEST_F(KeyLogTest, WhatIsNoRegularFileIsRefused) {
    EXPECT_EQ(OpenError("/dev/null"), "cannot write key log /dev/null: it is no regular file");
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    EXPECT_EQ(OpenError(Path()), "cannot write key log " + Path() + ": it is no regular file");
    std::remove(Path().c_str());
    ASSERT_EQ(symlink("/tmp/kdi-test-target", Path().c_str()), 0);
    EXPECT_EQ(OpenError(Path()), "cannot write key log " + Path() + ": it is a symbolic link");
    EXPECT_NE(access("/tmp/kdi-test-target", F_OK), 0);
    EXPECT_EQ(OpenError("/nonexistent/keys.log"),
              "cannot write key log /nonexistent/keys.log: No such file or directory");
}
