#include <gtest/gtest.h>

#include "TestDirectory.h"
#include "velm/Dom.h"
#include "velm/Syslogger.h"

namespace {

using namespace VelmCore;

class Syslogger : public ::testing::Test {
protected:
    std::string Header() {
        char buffer[200] = "<14>";
        m_Syslogger.AppendHeaderCEF(buffer, sizeof(buffer));
        return buffer;
    }
    std::string Identity(int format) {
        char buffer[200] = "|";
        m_Syslogger.AppendHostIdentityCEF(format, buffer, sizeof(buffer));
        return buffer;
    }

    CDom m_Dom;
    CSyslogger m_Syslogger{"pnp"};
};

TEST_F(Syslogger, IsCefFormat2OutOfTheBox) {
    m_Syslogger.UpdateConfig();
    EXPECT_TRUE(m_Syslogger.GetSyslogFormatCEF());
    EXPECT_EQ(m_Syslogger.m_Format, 2);
}

TEST_F(Syslogger, ReadsItsSettingsAnew) {
    m_Dom.SetText("velm.syslog.cef", "false");
    m_Dom.Set("velm.syslog.format", 1);
    m_Syslogger.UpdateConfig();
    EXPECT_FALSE(m_Syslogger.GetSyslogFormatCEF());
    EXPECT_EQ(m_Syslogger.m_Format, 1);
    m_Dom.SetText("velm.syslog.cef", "true");
    m_Dom.Set("velm.syslog.format", 0);
    m_Syslogger.UpdateConfig();
    EXPECT_TRUE(m_Syslogger.GetSyslogFormatCEF());
    EXPECT_EQ(m_Syslogger.m_Format, 0);
}

TEST_F(Syslogger, AFormatBeyondAnIntCountsAsAbsent) {
    m_Dom.Set("velm.syslog.format", 4294967297LL);
    m_Syslogger.UpdateConfig();
    EXPECT_EQ(m_Syslogger.m_Format, 2);
}

TEST_F(Syslogger, HeaderEndsInFrontOfTheEventNumber) {
    EXPECT_EQ(Header(), "<14>CEF:0|Zellora|Velm Agent|0.1.0|");
}

TEST_F(Syslogger, IdentityBeginsWithoutABlankAndHasALabelFromFormat2On) {
    m_Dom.Set("velm.host.id", 17);
    m_Dom.SetText("velm.host.name", "web=1");
    m_Syslogger.UpdateConfig();
    EXPECT_EQ(Identity(1), "|cn1=17 dvchost=web\\=1");
    EXPECT_EQ(Identity(2), "|cn1=17 cn1Label=Host ID dvchost=web\\=1");
    EXPECT_EQ(Identity(3), "|cn1=17 cn1Label=Host ID dvchost=web\\=1");
}

TEST_F(Syslogger, IdentityIsCutAtTheBuffersEnd) {
    char buffer[10] = "";
    m_Syslogger.AppendHostIdentityCEF(2, buffer, sizeof(buffer));
    EXPECT_STREQ(buffer, "cn1=0 cn1");
}

TEST_F(Syslogger, PrefixEscapesBackslashAndBarAndHasNoLineEnds) {
    EXPECT_EQ(m_Syslogger.EscapeCEFPrefix("a\\b|c=d\r\ne"), "a\\\\b\\|c=d  e");
}

TEST_F(Syslogger, ExtensionEscapesBackslashEqualsSignAndLineEnds) {
    EXPECT_EQ(m_Syslogger.EscapeCEFExtension("a\\b|c=d\r\ne"), "a\\\\b|c\\=d\\r\\ne");
}

// Both forms of an escape; the one in a buffer is cut at its end.
TEST_F(Syslogger, EscapesInABufferAreThoseOfTexts) {
    const std::string text = "a\\b|c=d\r\ne \xC3\xA4";
    char out[100];
    EXPECT_EQ(std::string(out, CSyslogger::EscapeCEFPrefix(text, out, sizeof(out))),
              "a\\\\b\\|c=d  e \xC3\xA4");
    EXPECT_EQ(std::string(out, CSyslogger::EscapeCEFExtension(text, out, sizeof(out))),
              "a\\\\b|c\\=d\\r\\ne \xC3\xA4");
    EXPECT_EQ(std::string(out, CSyslogger::EscapeCEFPrefix("ab|", out, 3)), "ab\\");
    EXPECT_EQ(std::string(out, CSyslogger::EscapeCEFExtension("a==", out, 4)), "a\\=\\");
    EXPECT_EQ(CSyslogger::EscapeCEFExtension("=", out, 0), 0u);
}

TEST_F(Syslogger, AFormatThatSomebodySetIsTheConfiguredOneAfterAnUpdate) {
    m_Syslogger.UpdateConfig();
    m_Syslogger.m_Format = 0;
    m_Syslogger.UpdateConfig();
    EXPECT_EQ(m_Syslogger.m_Format, 2);
}

// The values of one store never pass for those of another, whatever became of the first.
TEST(SysloggerAlone, SeesAnotherDom) {
    CSyslogger syslogger("pnp");
    for (const int format : {0, 1, 0}) {
        CDom dom;
        dom.Set("velm.syslog.format", format);
        syslogger.UpdateConfig();
        EXPECT_EQ(syslogger.m_Format, format);
    }
    syslogger.UpdateConfig();
    EXPECT_EQ(syslogger.m_Format, 2);
}

TEST(SysloggerAlone, SeesSettingsThatAFileBrings) {
    const TestDirectory directory;
    {
        CDom dom;
        ASSERT_EQ(dom.OpenSettings(directory.Path("settings.db")), "");
        dom.Set("velm.syslog.format", 0);
    }
    CDom dom;
    CSyslogger syslogger("pnp");
    syslogger.UpdateConfig();
    EXPECT_EQ(syslogger.m_Format, 2);
    ASSERT_EQ(dom.OpenSettings(directory.Path("settings.db")), "");
    syslogger.UpdateConfig();
    EXPECT_EQ(syslogger.m_Format, 0);
}

TEST(SysloggerAlone, TakesItsDefaultsWithoutADom) {
    CSyslogger syslogger("pnp");
    syslogger.UpdateConfig();
    EXPECT_TRUE(syslogger.GetSyslogFormatCEF());
    EXPECT_EQ(syslogger.m_Format, 2);
}

}  // namespace
