#include <cerrno>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "velm/Text.h"

namespace {

using namespace VelmCore;

TEST(Text, HexIsTwoLowerCaseDigitsAByteJoinedByColons) {
    EXPECT_EQ(toHexString(std::string("\x00\x1b\xFF", 3), false), "00:1b:ff");
    EXPECT_EQ(toHexString("\xAB", false), "ab");
    EXPECT_EQ(toHexString("", false), "");
}

TEST(Text, Base64IsPadded) {
    EXPECT_EQ(toBase64String("", false), "");
    EXPECT_EQ(toBase64String("f", false), "Zg==");
    EXPECT_EQ(toBase64String("fo", false), "Zm8=");
    EXPECT_EQ(toBase64String("foo", false), "Zm9v");
    EXPECT_EQ(toBase64String(std::string("\x00\xFF\xFE", 3), false), "AP/+");
}

TEST(Text, Base64OfALongTextHasNoLineBreaks) {
    const wxString text = toBase64String(std::string(200000, 'a'), false);
    EXPECT_EQ(text.length(), 266668u);
    EXPECT_EQ(text.find_first_of("\r\n"), wxString::npos);
    EXPECT_EQ(text.Left(65540).Right(8), "YWFhYWFh");  // where the encoder's blocks meet
    EXPECT_EQ(text.Right(8), "YWFhYWE=");
}

TEST(Text, TheFormsInABufferAreCutAtItsEnd) {
    char out[8];
    EXPECT_EQ(std::string(out, toHexText("\x01\xAB\xCD", 3, out, sizeof(out))), "01:ab:cd");
    EXPECT_EQ(std::string(out, toHexText("\x01\xAB\xCD", 3, out, 4)), "01:a");
    EXPECT_EQ(std::string(out, toHexText("\x01\xAB\xCD", 3, out, 1)), "0");
    EXPECT_EQ(toHexText("\x01", 1, out, 0), 0u);
    EXPECT_EQ(toHexText("", 0, out, sizeof(out)), 0u);
    EXPECT_EQ(std::string(out, toBase64Text("fooba", 5, out, sizeof(out))), "Zm9vYmE=");
    EXPECT_EQ(std::string(out, toBase64Text("fooba", 5, out, 7)), "Zm9vYmE");
    EXPECT_EQ(toBase64Text("fooba", 5, out, 0), 0u);
    EXPECT_EQ(toBase64Text("", 0, out, sizeof(out)), 0u);
}

TEST(Text, Utf8HasNoOverlongFormNoSurrogateAndAnEnd) {
    for (const char* text : {"", "a", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                             "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA4z"})
        EXPECT_TRUE(IsUtf8(text)) << text;
    for (const char* text :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2g", "\xE0\x9F\xBF", "\xE2\x82",
          "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF0\x90\x80", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xFF", "a\xC3\xA4\xC3"})
        EXPECT_FALSE(IsUtf8(text)) << text;
}

TEST(Text, Utf8LengthIsThatOfTheCharacter) {
    const std::string text = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xFF";
    EXPECT_EQ(Utf8Length(text, 0), 1u);
    EXPECT_EQ(Utf8Length(text, 1), 2u);
    EXPECT_EQ(Utf8Length(text, 2), 0u);  // inside of one
    EXPECT_EQ(Utf8Length(text, 3), 3u);
    EXPECT_EQ(Utf8Length(text, 6), 4u);
    EXPECT_EQ(Utf8Length(text, 10), 0u);
}

TEST(Text, NumbersAreDecimal) {
    EXPECT_EQ(toString(0), "0");
    EXPECT_EQ(toString(-2147483647 - 1), "-2147483648");
}

TEST(Text, NoBarIsLeft) {
    EXPECT_EQ(ReplaceBars("|a||b|"), "/a//b/");
    EXPECT_EQ(ReplaceBars("none"), "none");
    EXPECT_EQ(ReplaceBars(""), "");
}

TEST(Text, ErrnoHasTheTextOfTheCLibrary) {
    EXPECT_EQ(ErrnoToString(ENOENT), "No such file or directory");
    EXPECT_EQ(ErrnoToString(999999), "Unknown error 999999");
}

class OpenSslQueue : public ::testing::Test {
protected:
    OpenSslQueue() { ERR_clear_error(); }
    ~OpenSslQueue() override { ERR_clear_error(); }
};

TEST_F(OpenSslQueue, GivesNothingWhenEmpty) {
    EXPECT_EQ(OpenSSLError(), "");
}

TEST_F(OpenSslQueue, GivesTheNewestAndTakesOnlyThat) {
    ERR_raise(ERR_LIB_PEM, PEM_R_NO_START_LINE);
    ERR_raise_data(ERR_LIB_RSA, RSA_R_DATA_TOO_LARGE, "some data");
    ERR_raise(ERR_LIB_PEM, PEM_R_BAD_END_LINE);
    EXPECT_TRUE(OpenSSLError().Contains("bad end line"));
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_error()), PEM_R_NO_START_LINE);
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_last_error()), RSA_R_DATA_TOO_LARGE);
    const char* data = nullptr;
    int flags = 0;
    ERR_peek_last_error_data(&data, &flags);
    EXPECT_STREQ(data, "some data");
    EXPECT_TRUE(OpenSSLError().Contains("data too large"));
    EXPECT_TRUE(OpenSSLError().Contains("no start line"));
    EXPECT_EQ(ERR_peek_error(), 0ul);
}

}  // namespace
