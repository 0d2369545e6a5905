// Whatever a packet, a filter's name or a note carries stays in its field: a strict parser reads
// back what went in.

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <random>

#include "CefParser.h"
#include "SyslogFixture.h"

namespace {

constexpr int kRecords = 10000;
constexpr uint32_t kFilter = 1;

// Pieces of texts that somebody else chose.
const std::vector<std::string> kPieces = {"a",
                                          "B7",
                                          " ",
                                          "  ",
                                          "|",
                                          "||",
                                          "=",
                                          "==",
                                          "\\",
                                          "\\\\",
                                          "\n",
                                          "\r",
                                          "\r\n",
                                          "\t",
                                          "\x1b[2J",
                                          "\x7f",
                                          "\\",
                                          "\\n",
                                          "\\|",
                                          "\\=",
                                          "\xC3\xA4",
                                          "\xE2\x82\xAC",
                                          "\xF0\x9F\x98\x80",
                                          "/",
                                          "_",
                                          " act=Allow",
                                          "|10|cn1=9",
                                          " cs1Label=",
                                          "CEF:0|x",
                                          "\xE2\x80\xA8",
                                          "\"",
                                          "%s%n"};
// Bytes that no UTF-8 text has.
const std::vector<std::string> kInvalid = {"\xFF", "\xC0\xAF", "\xC3", "\xE2\x82", "\x80"};

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// A text as the configuration holds it, and as a field of a message shows it.
struct HostileText {
    std::string bytes;
    std::string shown;
};

class SyslogHostileTest : public SyslogTest {
protected:
    using Fields = std::vector<CefMessage::Field>;

    unsigned int Pick(unsigned int count) {
        return std::uniform_int_distribution<unsigned int>(0, count - 1)(m_Random);
    }
    bool Chance(unsigned int oneIn) { return Pick(oneIn) == 0; }
    template <class Value>
    Value AnyNumber() {
        return static_cast<Value>(m_Random());
    }
    const std::string& PickOf(const std::vector<std::string>& pieces) {
        return pieces[Pick(static_cast<unsigned int>(pieces.size()))];
    }

    // A text with a byte that is no UTF-8 is no text at all.
    HostileText AnyText() {
        HostileText text;
        for (unsigned int i = Pick(8); i > 0; --i)
            text.bytes += PickOf(kPieces);
        text.shown = text.bytes;
        if (Chance(8)) {
            text.bytes += PickOf(kInvalid) + "x";
            text.shown.clear();
        } else if (Chance(8)) {
            text.bytes += std::string("\0behind the end", 15);
        }
        return text;
    }

    static std::string WithBlanksForLineEnds(std::string text) {
        for (char& c : text) {
            if (c == '\n' || c == '\r') c = ' ';
        }
        return text;
    }

    void SetPayloadFilter(const std::string& name, const std::string& identifier) {
        lua_State* L = configuration.State();
        lua_settop(L, 0);
        lua_newtable(L);
        lua_newtable(L);
        lua_newtable(L);
        lua_pushlstring(L, name.data(), name.size());
        lua_setfield(L, -2, "name");
        lua_pushlstring(L, identifier.data(), identifier.size());
        lua_setfield(L, -2, "identifier");
        lua_pushinteger(L, 4);
        lua_setfield(L, -2, "severity");
        lua_rawseti(L, -2, kFilter);
        lua_setfield(L, -2, "payloadFilterMap");
    }

    velm_log_entry_s AnyEntry() {
        velm_log_entry_s entry;
        auto* bytes = reinterpret_cast<unsigned char*>(&entry);
        for (size_t i = 0; i < sizeof entry; ++i)
            bytes[i] = AnyNumber<unsigned char>();
        entry.log_reason = static_cast<int16_t>(-1 - static_cast<int>(Pick(900)));
        entry.log_filter_id = kFilter;
        entry.log_action = static_cast<uint16_t>(1 + Pick(6) + (Chance(2) ? 0x80 : 0));
        entry.log_packet_data_len = static_cast<uint16_t>(Pick(40));
        const uint8_t protocols[] = {1, 6, 17, 58, 99};
        entry.log_ip.v4.iph_proto = protocols[Pick(5)];
        if (Chance(2)) entry.log_ip.v6.ipv6h_next = protocols[Pick(5)];
        FillNote(entry);
        return entry;
    }

    // Half of the notes are text, often longer than they may be.
    void FillNote(velm_log_entry_s& entry) {
        entry.log_note_len = static_cast<uint16_t>(Pick(20));
        if (Chance(2)) return;
        static const char kText[] = "ab =\\|/\"'%{}[]~!";
        for (uint8_t& byte : entry.log_note)
            byte = static_cast<uint8_t>(kText[Pick(16)]);
    }

    std::mt19937 m_Random{20261113};
};

int Nibble64(char c) {
    static const std::string kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t at = kDigits.find(c);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

// The bytes of a base64 text.
std::string FromBase64(const std::string& text) {
    std::string bytes;
    unsigned int bits = 0;
    int count = 0;
    for (const char c : text) {
        if (c == '=') break;
        bits = bits << 6 | static_cast<unsigned int>(Nibble64(c));
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count & 0xFF);
    }
    return bytes;
}

std::string NoteOf(const velm_log_entry_s& entry) {
    const size_t length = std::min<size_t>(entry.log_note_len, 16);
    return std::string(reinterpret_cast<const char*>(entry.log_note), length);
}

bool IsPrintable(const std::string& text) {
    for (const char c : text) {
        if (c < ' ' || c > '~') return false;
    }
    return true;
}

std::string Hardware(const uint8_t* address) {
    return Printf("%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1], address[2], address[3],
                  address[4], address[5]);
}

std::string Ipv6(const uint8_t* address) {
    std::string text;
    for (int i = 0; i < 16; i += 2) {
        text += Printf(i == 0 ? "%x" : ":%x", address[i] * 256u + address[i + 1]);
    }
    return text;
}

std::string ProtocolWord(int protocol) {
    static const std::map<int, const char*> kWords = {{1, "ICMP"}, {2, "IGMP"},    {3, "GGP"},
                                                      {6, "TCP"},  {12, "PUP"},    {17, "UDP"},
                                                      {22, "IDP"}, {58, "ICMPv6"}, {77, "ND"}};
    const auto word = kWords.find(protocol);
    return word != kWords.end() ? word->second : std::to_string(protocol);
}

std::string FrameWord(unsigned int type) {
    switch (type) {
        case 0x0800:
            return "IP";
        case 0x0806:
            return "ARP";
        case 0x8035:
            return "RevARP";
        case 0x8191:
            return "NetBEUI";
        case 0x86DD:
            return "IPv6";
    }
    return Printf("%#x", type);
}

// Reads an entry byte by byte, at the places that the record's layout gives.
class PlainEntry {
public:
    explicit PlainEntry(const velm_log_entry_s& entry)
        : m_Bytes(reinterpret_cast<const uint8_t*>(&entry)) {}

    const uint8_t* At(size_t offset) const { return m_Bytes + offset; }
    unsigned int Wire16(size_t offset) const {
        return m_Bytes[offset] * 256u + m_Bytes[offset + 1];
    }
    bool Has(int flag) const { return (m_Bytes[0x26] & flag) != 0; }
    int Protocol() const { return Has(0x10) ? m_Bytes[0x7D] : Has(0x20) ? m_Bytes[0x7A] : -1; }
    bool HasTransport(int protocol) const { return Has(0x40) && Protocol() == protocol; }

private:
    const uint8_t* m_Bytes;
};

// The extension of a payload log in format 2, its values as they are meant, without the packet
// data and with the note's bytes.
class ExpectedExtension {
public:
    using Fields = std::vector<CefMessage::Field>;

    static Fields Of(const velm_log_entry_s& entry, const std::string& host) {
        ExpectedExtension expected(entry);
        expected.AddHost(host);
        expected.AddFrame();
        expected.AddAddresses();
        expected.AddPacket();
        expected.AddTransport();
        expected.AddPayload();
        return expected.m_Fields;
    }

private:
    explicit ExpectedExtension(const velm_log_entry_s& entry) : m_Entry(entry), m_Plain(entry) {}

    void Add(const std::string& key, const std::string& value, const char* label = nullptr) {
        m_Fields.push_back({key, value});
        if (label != nullptr) m_Fields.push_back({key + "Label", label});
    }
    void AddHost(const std::string& host) {
        Add("cn1", "7", "Host ID");
        Add("dvchost", host);
    }
    void AddFrame() {
        if (!m_Plain.Has(0x08)) return;
        Add("dmac", Hardware(m_Plain.At(0x66)));
        Add("smac", Hardware(m_Plain.At(0x6C)));
        Add("ZelloraFrameType", FrameWord(m_Plain.Wire16(0x72)));
    }
    void AddAddresses() {
        if (m_Plain.Has(0x10)) {
            Add("src", Dotted(m_Plain.At(0x80)));
            Add("dst", Dotted(m_Plain.At(0x84)));
        } else if (m_Plain.Has(0x20)) {
            Add("src", Ipv6(m_Plain.At(0x7C)));
            Add("dst", Ipv6(m_Plain.At(0x8C)));
        }
    }
    void AddPacket() {
        Add(m_Plain.Has(0x01) ? "out" : "in", std::to_string(m_Entry.log_packet_len % 65536));
        const unsigned int bits = m_Plain.Wire16(0x7A);
        if (m_Plain.Has(0x10) && (bits & 0x6000)) {
            std::string value = bits & 0x4000 ? "DF " : "";
            if (bits & 0x2000) value += "MF ";
            Add("cs3", value + std::to_string(bits % 0x2000 * 8), "Fragmentation Bits");
        }
        if (m_Plain.Protocol() >= 0) Add("proto", ProtocolWord(m_Plain.Protocol()));
    }
    void AddTransport() {
        if (m_Plain.HasTransport(6) || m_Plain.HasTransport(17)) {
            Add("spt", std::to_string(m_Plain.Wire16(0x9C)));
            Add("dpt", std::to_string(m_Plain.Wire16(0x9E)));
        }
        if (m_Plain.HasTransport(6)) Add("cs2", TcpFlags(*m_Plain.At(0xA9)), "TCP Flags");
        if (m_Plain.Has(0x10) && m_Plain.HasTransport(1)) {
            Add("cs4", Printf("%d %d", *m_Plain.At(0x9C), *m_Plain.At(0x9D)), "ICMP");
        }
        Add("cnt", Printf("%" PRIu32, m_Entry.log_repeat_count));
    }
    void AddPayload() {
        static const char* const kWords[] = {"",       "Block",   "Reset", "Insert",
                                             "Delete", "Replace", "Log"};
        const int action = m_Entry.log_action;
        Add("act", std::string(action & 0x80 ? "IDS:" : "") + kWords[action & 0x7F]);
        if (m_Entry.log_reason < -1) Add("cn2", std::to_string(m_Entry.log_reason), "DPI Reason");
        Add("cn3", std::to_string(m_Entry.log_packet_pos), "DPI Packet Position");
        Add("cs5", Printf("%" PRIu32, m_Entry.log_stream_pos), "DPI Stream Position");
        if (m_Entry.log_note_len != 0) Add("cs1", NoteOf(m_Entry), "DPI Note");
        const int flags = m_Entry.log_dpi_flags;
        const int shown = (flags & 1 ? 32 : 0) + (flags & 2 ? 8 : 0) + (flags & 4 ? 16 : 0) +
                          (flags & 8 ? 1 : 0) + (flags & 16 ? 2 : 0) + (flags & 32 ? 4 : 0);
        Add("cs6", std::to_string(shown), "DPI Flags");
    }

    static std::string Dotted(const uint8_t* address) {
        return Printf("%d.%d.%d.%d", address[0], address[1], address[2], address[3]);
    }
    static std::string TcpFlags(int flags) {
        std::string value = Printf("0x%02X", static_cast<unsigned int>(flags) / 64);
        static const char* const kWords[] = {" URG", " ACK", " PSH", " RST", " SYN", " FIN"};
        for (int i = 0; i < 6; ++i) {
            if (flags & (32 >> i)) value += kWords[i];
        }
        return value;
    }

    const velm_log_entry_s& m_Entry;
    PlainEntry m_Plain;
    Fields m_Fields;
};

// Takes the packet data off, and brings a note in base64 back into its bytes.
std::string TakePacketData(std::vector<CefMessage::Field>& fields) {
    if (fields.empty() || fields.back().first != "ZelloraPacketData") return "";
    const std::string bytes = FromBase64(fields.back().second);
    fields.pop_back();
    return bytes;
}

void DecodeNote(std::vector<CefMessage::Field>& fields, const std::string& note) {
    if (IsPrintable(note)) return;
    for (auto& field : fields) {
        if (field.first == "cs1") field.second = FromBase64(field.second);
    }
}

TEST_F(SyslogHostileTest, EveryFieldOfACefMessageIsReadBack) {
    Choose(true, 2);
    for (int i = 0; i < kRecords; ++i) {
        const HostileText name = AnyText();
        const HostileText identifier = AnyText();
        std::string host;
        for (unsigned int n = Pick(5); n > 0; --n)
            host += PickOf(kPieces);
        dom.SetText("velm.host.name", host);
        SetPayloadFilter(name.bytes, identifier.bytes);
        const velm_log_entry_s entry = AnyEntry();
        std::string data;
        for (int n = entry.log_packet_data_len; n > 0; --n)
            data += AnyNumber<char>();

        const std::string text = Message(entry, data);
        CefMessage message;
        ASSERT_NO_THROW(message = CefParser::Parse(text)) << "record " << i << ": " << text;
        // One that begins with a zero byte shows nothing, but is not missing.
        const bool isMissing = identifier.shown.empty() && identifier.bytes.find('\0') != 0;
        const std::string number = isMissing ? "10" : WithBlanksForLineEnds(identifier.shown);
        ASSERT_EQ(message.header,
                  (std::vector<std::string>{"CEF:0", "Zellora", "Velm Agent", "0.1.0", number,
                                            WithBlanksForLineEnds(name.shown), "10"}))
            << "record " << i << ": " << text;
        const bool hasData = (entry.log_dpi_flags & 0x02) != 0 && !data.empty();
        ASSERT_EQ(TakePacketData(message.extension), hasData ? data : "") << "record " << i;
        DecodeNote(message.extension, NoteOf(entry));
        ASSERT_EQ(message.extension, ExpectedExtension::Of(entry, host))
            << "record " << i << ": " << text;
    }
}

// Keys of format 0 are others, and its fragment bits are words behind the length.
TEST_F(SyslogHostileTest, EveryFormatOfCefIsReadBack) {
    for (int i = 0; i < kRecords / 10; ++i) {
        const HostileText name = AnyText();
        SetPayloadFilter(name.bytes, "9");
        const velm_log_entry_s entry = AnyEntry();
        for (const int format : {-1, 0, 1, 2, 3}) {
            const std::string text = Cef(format, entry);
            CefMessage message;
            ASSERT_NO_THROW(message = CefParser::Parse(text)) << format << ": " << text;
            ASSERT_EQ(message.header[5], WithBlanksForLineEnds(name.shown)) << text;
            DecodeNote(message.extension, NoteOf(entry));
            size_t notes = 0;
            for (const CefMessage::Field& field : message.extension) {
                if (field.first != "cs1") continue;
                ++notes;
                ASSERT_EQ(field.second, NoteOf(entry)) << text;
            }
            ASSERT_EQ(notes, entry.log_note_len == 0 ? 0u : 1u) << text;
        }
    }
}

TEST_F(SyslogHostileTest, HostNameWithInvalidUtf8HasAMarkForEachByte) {
    dom.SetText("velm.host.name", "a\xFF=b");
    EXPECT_EQ(Cef(1, BarePacketLog(0, 0, 0)),
              CEF_HEADER "0||5|cn1=7 dvchost=a\xEF\xBF\xBD\\=b in=0 cnt=0");
}

TEST_F(SyslogHostileTest, NameWithInvalidUtf8IsEmpty) {
    for (const char* name : {"a\xFF", "\xC0\xAF", "\xE2\x82", "\xF4\x90\x80\x80"}) {
        SetPayloadFilter(name, "9");
        EXPECT_EQ(Cef(1, BarePayloadLog(1, -1, 1)),
                  CEF_HEADER "9||10|" CEF_HOST " in=0 cnt=0 act=Block cn3=0 cs5=0 cs6=0");
    }
}

// wx takes it for a character, so it may reach the message.
TEST_F(SyslogHostileTest, EncodedSurrogateStaysInItsField) {
    SetPayloadFilter("a\xED\xA0\x80|b", "9");
    const CefMessage message = CefParser::Parse(Cef(1, BarePayloadLog(1, -1, 1)));
    EXPECT_EQ(message.header[4], "9");
    EXPECT_EQ(message.header[6], "10");
    EXPECT_EQ(message.extension.front(), CefMessage::Field("cn1", "7"));
}

TEST_F(SyslogHostileTest, LineEndsInAHeaderColumnAreBlanks) {
    SetPayloadFilter("a\r\nb|c\\d=e", "1\n2");
    EXPECT_EQ(Cef(1, BarePayloadLog(1, -1, 1)), CEF_HEADER
              "1 2|a  b\\|c\\\\d=e|10|" CEF_HOST " in=0 cnt=0 act=Block cn3=0 cs5=0 cs6=0");
}

// The plain form has no escapes. A name in it is ASCII without blanks, but keeps equals signs,
// bars, backslashes and control characters, line ends among them.
TEST_F(SyslogHostileTest, NameIsNotEscapedInThePlainForm) {
    SetPayloadFilter("a=b|c\\d e\xC3\xA4\xF0\x9F\x98\x80\r\nREASON=x\ty", "9");
    EXPECT_EQ(Plain(1, BarePayloadLog(1, -1, 1)),
              "REASON=PLD:a=b|c\\d_e__\r\nREASON=x\ty REV HOSTID=0 LEN=0 cnt=0 act=Block POS=0 "
              "SPOS=0 FLAGS=0");
}

// The same holds for an interface's name.
TEST_F(SyslogHostileTest, InterfaceNameIsNotEscapedInThePlainForm) {
    configuration.Set(
        "{interfaceMap = {['00:0c:29:11:22:33'] = {name = 'a=b|c\\n\\\\d e\\195\\164'}}}");
    velm_log_entry_s entry = TcpEntry();
    entry.log_flags = 0x08;
    EXPECT_EQ(Plain(1, entry),
              "REASON=PKT: HOSTID=0 IN=a=b|c\n\\d_e_ OUT= "
              "MAC=00:0c:29:11:22:33:00:0c:29:44:55:66:08:00 LEN=60 cnt=1");
}

}  // namespace
