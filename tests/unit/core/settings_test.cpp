#include <gtest/gtest.h>

#include "velm/Dom.h"

namespace {

using namespace VelmCore;

class Settings : public ::testing::Test {
protected:
    long long Number(const std::string& text) {
        m_Dom.SetText("key", text);
        long long value = -1;
        EXPECT_TRUE(m_Dom.Get("key", value));
        return value;
    }
    bool Bool(const std::string& text) {
        m_Dom.SetText("key", text);
        bool value = false;
        EXPECT_TRUE(m_Dom.Get("key", value));
        return value;
    }

    CDom m_Dom;
};

TEST_F(Settings, AKeyWithoutAValueIsAnEmptyText) {
    EXPECT_EQ(m_Dom.Get("key"), "");
    EXPECT_EQ(m_Dom.GetWxString("key"), "");
}

TEST_F(Settings, AKeyWithoutAValueLeavesTheNumberAlone) {
    long long value = 77;
    EXPECT_FALSE(m_Dom.Get("key", value));
    EXPECT_EQ(value, 77);
}

TEST_F(Settings, AKeyWithoutAValueStoresFalse) {
    bool value = true;
    EXPECT_FALSE(m_Dom.Get("key", value));
    EXPECT_FALSE(value);
}

TEST_F(Settings, AreVisibleAtOnceAndReplaced) {
    m_Dom.Set("key", 1);
    EXPECT_EQ(m_Dom.Get("key"), "1");
    m_Dom.SetText("key", "two");
    EXPECT_EQ(m_Dom.Get("key"), "two");
    m_Dom.SetText("key", "");
    EXPECT_EQ(m_Dom.Get("key"), "");
}

TEST_F(Settings, NumbersOfAllSizes) {
    m_Dom.Set("key", -9223372036854775807LL - 1);
    EXPECT_EQ(m_Dom.Get("key"), "-9223372036854775808");
    EXPECT_EQ(Number("9223372036854775807"), 9223372036854775807LL);
    EXPECT_EQ(Number("9223372036854775808"), 9223372036854775807LL);
}

TEST_F(Settings, AValueThatIsNoNumberReadsAsZero) {
    EXPECT_EQ(Number("abc"), 0);
    EXPECT_EQ(Number("12abc"), 0);
    EXPECT_EQ(Number("1.5"), 0);
    EXPECT_EQ(Number(""), 0);
    EXPECT_EQ(Number(std::string("7\0", 2)), 0);
}

TEST_F(Settings, TextsThatAreTrue) {
    for (const char* text : {"true", "TRUE", "1", "yes", "on", "-1", "42"})
        EXPECT_TRUE(Bool(text));
}

TEST_F(Settings, TextsThatAreFalse) {
    for (const char* text : {"false", "0", "no", "off", "", "other"})
        EXPECT_FALSE(Bool(text));
}

TEST_F(Settings, TextsAreUtf8AndMayHoldZeroBytes) {
    m_Dom.SetText("uuid", "\xC3\xA9");
    EXPECT_EQ(m_Dom.GetWxString("uuid"), L"\u00e9");
    m_Dom.SetText("bytes", std::string("a\0b", 3));
    EXPECT_EQ(m_Dom.Get("bytes"), std::string("a\0b", 3));
    m_Dom.SetText("bad", "a\xFF");
    EXPECT_EQ(m_Dom.GetWxString("bad"), L"a\uFFFD");
}

TEST_F(Settings, FlushHasNothingToDoWithoutAFile) {
    m_Dom.Set("key", 1);
    EXPECT_TRUE(m_Dom.FlushSettings());
}

}  // namespace
