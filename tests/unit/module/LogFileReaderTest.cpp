// Log files in pieces, as the retrieval sees them.

#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "LogFileReader.h"

namespace {

using OSTREL::LogFileReader;
using OSTREL::LogLine;
using namespace std::string_literals;

class LogFileReaderTest : public ::testing::Test {
protected:
    ~LogFileReaderTest() override {
        if (m_Fd != -1) close(m_Fd);
    }
    void Open(const std::string& content) {
        m_Fd = memfd_create("log", 0);
        ASSERT_EQ(write(m_Fd, content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
        lseek(m_Fd, 0, SEEK_SET);
        reader = std::make_unique<LogFileReader>(m_Fd);
    }
    // The text of the next piece, "<end>" behind the last.
    std::string Next() { return reader->Next(line) ? std::string(line.text, line.end) : "<end>"; }

    std::unique_ptr<LogFileReader> reader;
    LogLine line;

private:
    int m_Fd = -1;
};

TEST_F(LogFileReaderTest, EmptyFileHasNoPiece) {
    Open("");
    EXPECT_EQ(Next(), "<end>");
}

TEST_F(LogFileReaderTest, LinesComeWithoutTheirLineFeed) {
    Open("a,b,c,d\n\nx\n");
    EXPECT_EQ(Next(), "a,b,c,d");
    EXPECT_EQ(Next(), "");
    EXPECT_EQ(Next(), "x");
    EXPECT_EQ(Next(), "<end>");
}

TEST_F(LogFileReaderTest, LastLineNeedsNoLineFeed) {
    Open("a\nb");
    EXPECT_EQ(Next(), "a");
    EXPECT_EQ(Next(), "b");
    EXPECT_EQ(Next(), "<end>");
}

TEST_F(LogFileReaderTest, CommasAreFound) {
    Open("a,bb,ccc,dddd,e\n");
    Next();
    EXPECT_EQ(line.third - line.text, 8);
    EXPECT_EQ(line.last - line.text, 13);
}

TEST_F(LogFileReaderTest, FewerThanThreeCommasHaveNoThird) {
    Open("a,b,c\n");
    Next();
    EXPECT_EQ(line.third, nullptr);
    EXPECT_EQ(line.last - line.text, 3);
}

TEST_F(LogFileReaderTest, CarriageReturnEndsTheText) {
    Open("a,b,c,1\r,2,3\nnext\n");
    EXPECT_EQ(Next(), "a,b,c,1");
    EXPECT_EQ(line.state, LogLine::Whole);
    EXPECT_EQ(line.last - line.text, 5);
    EXPECT_EQ(Next(), "next");
}

TEST_F(LogFileReaderTest, ZeroByteEndsTheText) {
    Open("a,b,c,1\0,2,3\x01\nnext\n"s);
    EXPECT_EQ(Next(), "a,b,c,1");
    EXPECT_EQ(line.state, LogLine::Whole);
    EXPECT_EQ(Next(), "next");
}

TEST_F(LogFileReaderTest, EdgesOfThePrintableRange) {
    Open(" ~\n\x1F\n\n\x7F\n\n\x80\n\n\xFF\n");
    Next();
    EXPECT_EQ(line.state, LogLine::Whole);
    for (int i = 0; i < 4; ++i) {
        reader->Next(line);
        EXPECT_EQ(line.state, LogLine::Corrupt);
        reader->Next(line);
    }
}

TEST_F(LogFileReaderTest, TabIsCorrupt) {
    Open("a\tb\n");
    Next();
    EXPECT_EQ(line.state, LogLine::Corrupt);
}

TEST_F(LogFileReaderTest, ByteBehindACarriageReturnIsNotLookedAt) {
    Open("a\r\x01\n");
    Next();
    EXPECT_EQ(line.state, LogLine::Whole);
}

TEST_F(LogFileReaderTest, CorruptTextKeepsItsBytesAndItsLineFeed) {
    Open("a,b,c,1\x01,2,3\n");
    EXPECT_EQ(Next(), "a,b,c,1\x01,2,3\n");
    EXPECT_EQ(line.state, LogLine::Corrupt);
    EXPECT_EQ(line.scanEnd - line.text, 7);
    EXPECT_EQ(line.last - line.text, 5);
}

TEST_F(LogFileReaderTest, CorruptTextEndsAtAZeroByte) {
    Open(
        "a\x01"
        "b\0c\n"s);
    EXPECT_EQ(Next(),
              "a\x01"
              "b");
}

TEST_F(LogFileReaderTest, SkipDropsTheNextLine) {
    Open("a\x01\nb\nc\n");
    Next();
    EXPECT_TRUE(reader->SkipLine());
    EXPECT_EQ(Next(), "c");
}

TEST_F(LogFileReaderTest, SkipAtTheEndLeavesTheCorruptLineValid) {
    Open(
        "a,b,c,\x01"
        "bad");
    Next();
    EXPECT_FALSE(reader->SkipLine());
    EXPECT_EQ(std::string(line.text, line.end),
              "a,b,c,\x01"
              "bad");
    EXPECT_EQ(*line.third, ',');
    EXPECT_EQ(Next(), "<end>");
}

TEST_F(LogFileReaderTest, PieceHasAtMost9343Bytes) {
    Open(std::string(9343, 'a') + std::string(9342, 'b') + "\n" + std::string(9343, 'c') + "\n");
    EXPECT_EQ(Next(), std::string(9343, 'a'));
    EXPECT_EQ(Next(), std::string(9342, 'b'));
    EXPECT_EQ(Next(), std::string(9343, 'c'));
    EXPECT_EQ(Next(), "");
    EXPECT_EQ(Next(), "<end>");
}

TEST_F(LogFileReaderTest, CarriageReturnEndsOnlyItsPiece) {
    Open("a\r" + std::string(9341, 'b') + "c\n");
    EXPECT_EQ(Next(), "a");
    EXPECT_EQ(Next(), "c");
}

// Files longer than the reader's memory, with odd bytes at every distance.
TEST_F(LogFileReaderTest, LongFilesReadAlikeWhereverAnOddByteStands) {
    std::string content;
    for (int i = 0; i < 5000; ++i) {
        content += std::string(static_cast<size_t>(i % 97), 'x');
        content += i % 3 == 0 ? "\r" : "";
        content += "\n";
    }
    Open(content);
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(Next(), std::string(static_cast<size_t>(i % 97), 'x')) << i;
    EXPECT_EQ(Next(), "<end>");
}

TEST_F(LogFileReaderTest, SkipGoesOnAcrossTheReadersMemory) {
    Open("a\x01" + std::string(9341, 'b') + std::string(400000, 'c') + "\nd\n");
    Next();
    EXPECT_TRUE(reader->SkipLine());
    EXPECT_EQ(Next(), "d");
}

}  // namespace
