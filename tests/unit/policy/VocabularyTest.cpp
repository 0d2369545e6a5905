// The words of log entries, as readers of the logs know them, misspellings included.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <wx/arrstr.h>
#include <wx/translation.h>

#include "TextCursor.h"
#include "policy/PacketFilter.h"
#include "policy/PayloadFilter.h"

namespace {

using namespace OSTREL;

// Both forms of the words: by themselves, and at the end of a text.
template <class Append>
wxString Words(const wxString& alone, Append append, int code) {
    char buffer[200];
    TextCursor text(buffer, sizeof buffer);
    text.Put("act=");
    append(text, code);
    EXPECT_EQ(wxString::FromUTF8(text.Terminate()), "act=" + alone);
    return alone;
}

wxString FilterAction(int code) {
    return Words(CPacketFilter::FilterActionToString(CPacketFilter::_FilterAction(code)),
                 CPacketFilter::AppendFilterAction, code);
}

wxString PacketStatus(int code) {
    return Words(CPacketFilter::LogStatusToString(code), CPacketFilter::AppendLogStatus, code);
}

wxString PayloadAction(int code) {
    return Words(CPayloadFilter::LogActionToString(code), CPayloadFilter::AppendLogAction, code);
}

wxString PayloadStatus(int code) {
    return Words(CPayloadFilter::LogStatusToString(code), CPayloadFilter::AppendLogStatus, code);
}

TEST(FilterActionWords, EachRow) {
    EXPECT_EQ(FilterAction(0), "Log");
    EXPECT_EQ(FilterAction(1), "Allow");
    EXPECT_EQ(FilterAction(2), "Deny");
    EXPECT_EQ(FilterAction(3), "Force Allow");
    EXPECT_EQ(FilterAction(4), "Bypass");
}

TEST(FilterActionWords, AnotherCodeIsADecimalNumber) {
    EXPECT_EQ(FilterAction(5), "5");
    EXPECT_EQ(FilterAction(2147483647), "2147483647");
}

TEST(FilterActionWords, ANegativeCodeIsPrintedSigned) {
    EXPECT_EQ(FilterAction(-1), "-1");
}

TEST(PacketStatusWords, EachRow) {
    EXPECT_EQ(PacketStatus(100), "Out Of Connection");
    EXPECT_EQ(PacketStatus(101), "Invalid Flags");
    EXPECT_EQ(PacketStatus(102), "Invalid Sequence");
    EXPECT_EQ(PacketStatus(103), "Invalid Ack");
    EXPECT_EQ(PacketStatus(104), "Internal Error");
    EXPECT_EQ(PacketStatus(105), "CE Flags");
    EXPECT_EQ(PacketStatus(106), "Invalid IP");
    EXPECT_EQ(PacketStatus(107), "Invalid IP Datagram Length");
    EXPECT_EQ(PacketStatus(108), "Fragmented");
    EXPECT_EQ(PacketStatus(109), "Invalid Frament Offsets");
    EXPECT_EQ(PacketStatus(110), "First Fragment Too Small");
    EXPECT_EQ(PacketStatus(111), "Fragment Out Of Bounds");
    EXPECT_EQ(PacketStatus(112), "Fragment Offset Too Small");
    EXPECT_EQ(PacketStatus(113), "IPv6 Packet");
    EXPECT_EQ(PacketStatus(114), "Max Incoming Connections");
    EXPECT_EQ(PacketStatus(115), "Max Outgoing Connections");
    EXPECT_EQ(PacketStatus(116), "Max Half Open Connections");
    EXPECT_EQ(PacketStatus(118), "Invalid IP Header Length");
    EXPECT_EQ(PacketStatus(119), "Invalid Packet Info");
    EXPECT_EQ(PacketStatus(120), "Internal Engine Error");
    EXPECT_EQ(PacketStatus(121), "Unsolicited UDP");
    EXPECT_EQ(PacketStatus(122), "Unsolicited ICMP");
    EXPECT_EQ(PacketStatus(123), "Out Of Allowed Policy");
    EXPECT_EQ(PacketStatus(124), "Invalid Port Command");
    EXPECT_EQ(PacketStatus(125), "SYN Cookie Error");
    EXPECT_EQ(PacketStatus(126), "Invalid Data Offset");
    EXPECT_EQ(PacketStatus(127), "No IP Header");
    EXPECT_EQ(PacketStatus(128), "Unreadable Ethernet Header");
    EXPECT_EQ(PacketStatus(130), "Same Source and Destination IP");
    EXPECT_EQ(PacketStatus(131), "Invalid TCP Header Length");
    EXPECT_EQ(PacketStatus(132), "Unreadable Protocol Header");
    EXPECT_EQ(PacketStatus(133), "Unreadable IPv4 Header");
    EXPECT_EQ(PacketStatus(134), "Unknown IP Version");
    EXPECT_EQ(PacketStatus(135), "Invalid Adapter Configuration");
    EXPECT_EQ(PacketStatus(136), "Overlapping Fragment");
    EXPECT_EQ(PacketStatus(137), "Maximum ACK Retransmit");
    EXPECT_EQ(PacketStatus(138), "Packet on Closed Connection");
    EXPECT_EQ(PacketStatus(139), "Dropped Retransmit");
    EXPECT_EQ(PacketStatus(141), "Out Of Allowed Policy (Open Port)");
    EXPECT_EQ(PacketStatus(142), "New Connection");
    EXPECT_EQ(PacketStatus(143), "Invalid Checksum");
    EXPECT_EQ(PacketStatus(144), "Invalid Hook Used");
    EXPECT_EQ(PacketStatus(145), "IP Zero Payload");
    EXPECT_EQ(PacketStatus(146), "IPv6 Source Is Multicast");
    EXPECT_EQ(PacketStatus(147), "Invalid IPv6 Address");
    EXPECT_EQ(PacketStatus(148), "IPv6 Fragment Too Small");
    EXPECT_EQ(PacketStatus(149), "Invalid Transport Header Length");
    EXPECT_EQ(PacketStatus(150), "Driver Memory Failure");
    EXPECT_EQ(PacketStatus(151), "Max TCP Connections");
    EXPECT_EQ(PacketStatus(152), "Max UDP Connections");
}

TEST(PacketStatusWords, TheGapsAreHexadecimal) {
    EXPECT_EQ(PacketStatus(117), "0x75");
    EXPECT_EQ(PacketStatus(129), "0x81");
    EXPECT_EQ(PacketStatus(140), "0x8c");
}

TEST(PacketStatusWords, OutsideTheTableIsHexadecimal) {
    EXPECT_EQ(PacketStatus(99), "0x63");
    EXPECT_EQ(PacketStatus(153), "0x99");
    EXPECT_EQ(PacketStatus(0), "0");
    EXPECT_EQ(PacketStatus(-1), "0xffffffff");
}

TEST(PayloadActionWords, EachRow) {
    EXPECT_EQ(PayloadAction(1), "Block");
    EXPECT_EQ(PayloadAction(2), "Reset");
    EXPECT_EQ(PayloadAction(3), "Insert");
    EXPECT_EQ(PayloadAction(4), "Delete");
    EXPECT_EQ(PayloadAction(5), "Replace");
    EXPECT_EQ(PayloadAction(6), "Log");
}

TEST(PayloadActionWords, AnotherActionIsADecimalNumber) {
    EXPECT_EQ(PayloadAction(0), "0");
    EXPECT_EQ(PayloadAction(7), "7");
    EXPECT_EQ(PayloadAction(0x101), "257");
}

TEST(PayloadActionWords, TheFlagPutsDetectOnlyInFront) {
    EXPECT_EQ(PayloadAction(0x81), "Detect Only: Block");
    EXPECT_EQ(PayloadAction(0x86), "Detect Only: Log");
    EXPECT_EQ(PayloadAction(0x80), "Detect Only: 0");
    EXPECT_EQ(PayloadAction(0x87), "Detect Only: 7");
}

TEST(PayloadStatusWords, EachRow) {
    EXPECT_EQ(PayloadStatus(-1), "Payload filter action");
    EXPECT_EQ(PayloadStatus(-101), "Debug Trace");
    EXPECT_EQ(PayloadStatus(-102), "Debug Packet Dump");
    EXPECT_EQ(PayloadStatus(-103), "Debug Connection State Dump");
    EXPECT_EQ(PayloadStatus(-200), "Region Too Big");
    EXPECT_EQ(PayloadStatus(-201), "Out of Bounds");
    EXPECT_EQ(PayloadStatus(-202), "Maximum Edits Exceeded");
    EXPECT_EQ(PayloadStatus(-203), "Edit Too Large");
    EXPECT_EQ(PayloadStatus(-204), "Max Matches in Packet Exceeded");
    EXPECT_EQ(PayloadStatus(-205), "Engine Call Stack Too Deep");
    EXPECT_EQ(PayloadStatus(-206), "Runtime Error");
    EXPECT_EQ(PayloadStatus(-207), "Packet Read Error");
    EXPECT_EQ(PayloadStatus(-300), "Unsupported Cipher");
    EXPECT_EQ(PayloadStatus(-301), "Error Generating Master Key(s)");
    EXPECT_EQ(PayloadStatus(-302), "Record Layer Message (not ready)");
    EXPECT_EQ(PayloadStatus(-303), "Handshake Message (not ready)");
    EXPECT_EQ(PayloadStatus(-304), "Out Of Order Handshake Message");
    EXPECT_EQ(PayloadStatus(-305), "Memory Allocation Error");
    EXPECT_EQ(PayloadStatus(-306), "Unsupported SSL Version");
    EXPECT_EQ(PayloadStatus(-307), "Error Decrypting Pre-master Key");
    EXPECT_EQ(PayloadStatus(-308), "Client Attempted to Rollback");
    EXPECT_EQ(PayloadStatus(-309), "Renewal Error");
    EXPECT_EQ(PayloadStatus(-310), "Key Exchange Error");
    EXPECT_EQ(PayloadStatus(-311), "Error Generating Pre-Master Request");
    EXPECT_EQ(PayloadStatus(-312), "Key Too Large");
    EXPECT_EQ(PayloadStatus(-313), "Invalid Parameters In Handshake");
    EXPECT_EQ(PayloadStatus(-314), "Number of Available Sessions Exceeded");
    EXPECT_EQ(PayloadStatus(-315), "Compression Method Unsupported");
    EXPECT_EQ(PayloadStatus(-500), "URI Path Depth Exceeded");
    EXPECT_EQ(PayloadStatus(-501), "Invalid Traversal");
    EXPECT_EQ(PayloadStatus(-502), "Illegal Character in URI");
    EXPECT_EQ(PayloadStatus(-503), "Incomplete UTF8 Sequence");
    EXPECT_EQ(PayloadStatus(-504), "Invalid UTF8 Encoding");
    EXPECT_EQ(PayloadStatus(-505), "Invalid Hex Encoding");
    EXPECT_EQ(PayloadStatus(-506), "URI Path Length Too Long");
    EXPECT_EQ(PayloadStatus(-507), "Invalid Use of Character");
    EXPECT_EQ(PayloadStatus(-508), "Double Decoding Exploit");
    EXPECT_EQ(PayloadStatus(-700), "Invalid Base64 Content");
    EXPECT_EQ(PayloadStatus(-710), "Corrupted Deflate/GZIP Content");
    EXPECT_EQ(PayloadStatus(-711), "Incomplete Deflate/GZIP Content");
    EXPECT_EQ(PayloadStatus(-712), "Deflate/GZIP Checksum Error");
    EXPECT_EQ(PayloadStatus(-713), "Unsupported Deflate/GZIP Dictionary");
    EXPECT_EQ(PayloadStatus(-714), "Unsupported GZIP Header Format/Method");
    EXPECT_EQ(PayloadStatus(-801), "Protocol Decoding Search Limit Exceeded");
    EXPECT_EQ(PayloadStatus(-802), "Protocol Decoding Constraint Error");
    EXPECT_EQ(PayloadStatus(-803), "Protocol Decoding Engine Internal Error");
    EXPECT_EQ(PayloadStatus(-804), "Protocol Decoding Structure Too Deep");
    EXPECT_EQ(PayloadStatus(-805), "Protocol Decoding Stack Error");
    EXPECT_EQ(PayloadStatus(-806), "Infinite Data Loop Error");
    EXPECT_EQ(PayloadStatus(10000), "Connection Close Notification");
    EXPECT_EQ(PayloadStatus(10001), "Connection Close Notification");
}

TEST(PayloadStatusWords, AnotherCodeIsAnErrorWithItsSign) {
    EXPECT_EQ(PayloadStatus(0), "Error: 0");
    EXPECT_EQ(PayloadStatus(-2), "Error: -2");
    EXPECT_EQ(PayloadStatus(9999), "Error: 9999");
    EXPECT_EQ(PayloadStatus(10002), "Error: 10002");
    EXPECT_EQ(PayloadStatus(-715), "Error: -715");
}

// A catalogue in the binary form of gettext, made of pairs of texts in alphabetical order.
class Catalogue {
public:
    void Add(const std::string& text, const std::string& translation) {
        m_Texts.push_back(text);
        m_Translations.push_back(translation);
    }

    std::string Bytes() const {
        const uint32_t count = static_cast<uint32_t>(m_Texts.size());
        const uint32_t tables = 7 * 4;
        std::string bytes;
        for (const uint32_t word : {0x950412DEu, 0u, count, tables, tables + 8 * count, 0u, 0u}) {
            AppendWord(bytes, word);
        }
        std::string pool;
        const uint32_t poolAt = tables + 16 * count;
        for (const auto* texts : {&m_Texts, &m_Translations}) {
            for (const std::string& text : *texts) {
                AppendWord(bytes, static_cast<uint32_t>(text.size()));
                AppendWord(bytes, poolAt + static_cast<uint32_t>(pool.size()));
                pool.append(text.c_str(), text.size() + 1);
            }
        }
        return bytes + pool;
    }

private:
    static void AppendWord(std::string& bytes, uint32_t word) {
        char raw[sizeof(word)];
        memcpy(raw, &word, sizeof(word));
        bytes.append(raw, sizeof(raw));
    }

    std::vector<std::string> m_Texts;
    std::vector<std::string> m_Translations;
};

class Loader : public wxTranslationsLoader {
public:
    explicit Loader(const Catalogue& catalogue) : m_Bytes(catalogue.Bytes()) {}

    wxMsgCatalog* LoadCatalog(const wxString& domain, const wxString&) override {
        return wxMsgCatalog::CreateFromData(
            wxScopedCharBuffer::CreateNonOwned(m_Bytes.data(), m_Bytes.size()), domain);
    }
    wxArrayString GetAvailableTranslations(const wxString&) const override {
        return wxArrayString(1, &m_Language);
    }

private:
    std::string m_Bytes;
    wxString m_Language = "de";
};

class TranslatedWords : public ::testing::Test {
protected:
    void SetUp() override {
        Catalogue catalogue;
        catalogue.Add("", "Content-Type: text/plain; charset=UTF-8\n");
        catalogue.Add("Block", "Sperren");
        catalogue.Add("Detect Only: ", "Nur erkennen: ");
        catalogue.Add("Error: ", "Fehler: ");
        catalogue.Add("Invalid Flags", "Ung\xC3\xBCltige Flags");
        wxTranslations::Set(new wxTranslations);
        wxTranslations::Get()->SetLoader(new Loader(catalogue));
        wxTranslations::Get()->SetLanguage("de");
        ASSERT_TRUE(wxTranslations::Get()->AddCatalog("agent", wxLANGUAGE_ENGLISH_US));
    }
    void TearDown() override { wxTranslations::Set(nullptr); }
};

TEST_F(TranslatedWords, ComeFromTheCatalogue) {
    EXPECT_EQ(PacketStatus(101), wxString::FromUTF8("Ung\xC3\xBCltige Flags"));
    EXPECT_EQ(PayloadStatus(-2), "Fehler: -2");
}

TEST_F(TranslatedWords, DetectOnlyIsLookedUpByItself) {
    EXPECT_EQ(PayloadAction(0x81), "Nur erkennen: Sperren");
    EXPECT_EQ(PayloadAction(0x80), "Nur erkennen: 0");
}

TEST_F(TranslatedWords, StandAsTheyAreWithoutATranslation) {
    EXPECT_EQ(PayloadAction(2), "Reset");
    EXPECT_EQ(FilterAction(4), "Bypass");
}

}  // namespace
