#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "velm/BoundedText.h"

namespace {

// A buffer of a given size with guard bytes behind it.
class BoundedText : public ::testing::Test {
protected:
    static constexpr char GUARD = '#';

    BoundedText() { memset(m_Memory, GUARD, sizeof(m_Memory)); }
    ~BoundedText() override { EXPECT_EQ(m_Memory[SIZE], GUARD); }

    static constexpr size_t SIZE = 8;
    char m_Memory[SIZE + 8];
};

TEST_F(BoundedText, CopyReplacesTheText) {
    strcpy_safe(m_Memory, SIZE, "old");
    strcpy_safe(m_Memory, SIZE, "a");
    EXPECT_STREQ(m_Memory, "a");
}

TEST_F(BoundedText, CopyKeepsWhatFits) {
    strcpy_safe(m_Memory, SIZE, "123456789");
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, CopyOfExactlyWhatFitsIsWhole) {
    strcpy_safe(m_Memory, SIZE, "1234567");
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, CopyDoesNotPadTheBuffer) {
    strcpy_safe(m_Memory, SIZE, "a");
    EXPECT_EQ(m_Memory[2], GUARD);
}

TEST_F(BoundedText, AppendFollowsTheText) {
    strcpy_safe(m_Memory, SIZE, "ab");
    strcat_safe(m_Memory, SIZE, "cd");
    EXPECT_STREQ(m_Memory, "abcd");
}

TEST_F(BoundedText, AppendKeepsWhatFits) {
    strcpy_safe(m_Memory, SIZE, "12345");
    strcat_safe(m_Memory, SIZE, "6789");
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, AppendToAFullBufferChangesNothing) {
    strcpy_safe(m_Memory, SIZE, "1234567");
    strcat_safe(m_Memory, SIZE, "x");
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, FormatReplacesTheText) {
    strcpy_safe(m_Memory, SIZE, "old");
    snprintf_safe(m_Memory, SIZE, "%d-%s", 7, "x");
    EXPECT_STREQ(m_Memory, "7-x");
}

TEST_F(BoundedText, FormatKeepsWhatFits) {
    snprintf_safe(m_Memory, SIZE, "%s", "123456789");
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, FormattedAppendKeepsWhatFits) {
    strcpy_safe(m_Memory, SIZE, "12345");
    snprintfcat(m_Memory, SIZE, "%d", 6789);
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, FormattedAppendToAFullBufferChangesNothing) {
    strcpy_safe(m_Memory, SIZE, "1234567");
    snprintfcat(m_Memory, SIZE, "%d", 8);
    EXPECT_STREQ(m_Memory, "1234567");
}

TEST_F(BoundedText, AChainOfAppendsTakesTheSameTwoValues) {
    strcpy_safe(m_Memory, SIZE, "a");
    snprintfcat(m_Memory, SIZE, "%d", 1);
    strcat_safe(m_Memory, SIZE, "b");
    snprintfcat(m_Memory, SIZE, "%d", 2);
    EXPECT_STREQ(m_Memory, "a1b2");
}

TEST_F(BoundedText, AppendsEndATextThatLacksItsEnd) {
    strcat_safe(m_Memory, SIZE, "x");
    EXPECT_STREQ(m_Memory, "#######");
    memset(m_Memory, GUARD, SIZE);
    snprintfcat(m_Memory, SIZE, "%d", 1);
    EXPECT_STREQ(m_Memory, "#######");
}

TEST_F(BoundedText, SizeOneHoldsTheEndOnly) {
    strcpy_safe(m_Memory, 1, "x");
    EXPECT_STREQ(m_Memory, "");
    strcat_safe(m_Memory, 1, "x");
    EXPECT_STREQ(m_Memory, "");
    snprintf_safe(m_Memory, 1, "%d", 1);
    EXPECT_STREQ(m_Memory, "");
    snprintfcat(m_Memory, 1, "%d", 1);
    EXPECT_STREQ(m_Memory, "");
    EXPECT_EQ(m_Memory[1], GUARD);
}

TEST_F(BoundedText, SizeZeroWritesNothing) {
    strcpy_safe(m_Memory, 0, "x");
    strcat_safe(m_Memory, 0, "x");
    snprintf_safe(m_Memory, 0, "%d", 1);
    snprintfcat(m_Memory, 0, "%d", 1);
    EXPECT_EQ(std::string(m_Memory, sizeof(m_Memory)), std::string(sizeof(m_Memory), GUARD));
}

}  // namespace
