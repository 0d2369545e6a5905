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
