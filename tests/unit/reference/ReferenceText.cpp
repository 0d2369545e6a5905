#include "ReferenceText.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace Reference {

namespace {

unsigned U16(const unsigned char* bytes) {
    return bytes[0] | bytes[1] << 8;
}
unsigned U32(const unsigned char* bytes) {
    return U16(bytes) | U16(bytes + 2) << 16;
}
unsigned Wire16(const unsigned char* bytes) {
    return bytes[0] << 8 | bytes[1];
}
int Signed16(const unsigned char* bytes) {
    const int value = static_cast<int>(U16(bytes));
    return value >= 0x8000 ? value - 0x10000 : value;
}

// A bounded text that is appended to.
struct Line {
    char text[1024] = "";
    size_t length = 0;

    void Add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        const int wanted = vsnprintf(text + length, sizeof text - length, format, arguments);
        va_end(arguments);
        length = std::min(length + static_cast<size_t>(wanted), sizeof text - 1);
    }
};

constexpr unsigned kNone = 256;

unsigned Protocol(const unsigned char* e) {
    if (e[0x26] & 0x10) return e[0x7D];
    if (e[0x26] & 0x20) return e[0x7A];
    return kNone;
}

bool HasPortNumbers(const unsigned char* e) {
    return (Protocol(e) == 6 || Protocol(e) == 17) && (e[0x26] & 0x40) != 0;
}

void AddHexAddress(Line& line, const unsigned char* bytes, unsigned length) {
    for (unsigned i = 0; i < length; ++i)
        line.Add(i == 0 ? "%02X" : " %02X", bytes[i]);
    line.Add(", ");
}

void AddFrameType(Line& line, const unsigned char* e) {
    if (e[0x26] & 0x08) {
        switch (Wire16(e + 0x72)) {
            case 0x0800:
                line.Add("IP");
                break;
            case 0x0806:
                line.Add("ARP");
                break;
            case 0x8035:
                line.Add("RevARP");
                break;
            case 0x8191:
                line.Add("NetBEUI");
                break;
            case 0x86DD:
                line.Add("IPv6");
                break;
            default:
                line.Add("%#x", Wire16(e + 0x72));
        }
    } else if (e[0x26] & 0x10) {
        line.Add("IP");
    } else if (e[0x26] & 0x20) {
        line.Add("IPv6");
    }
    line.Add(", ");
}

void AddProtocol(Line& line, const unsigned char* e) {
    static const struct {
        unsigned number;
        const char* word;
    } kWords[] = {{1, "ICMP"}, {2, "IGMP"}, {3, "GGP"}, {6, "TCP"},     {12, "PUP"},
                  {17, "UDP"}, {22, "IDP"}, {77, "ND"}, {58, "ICMPv6"}, {kNone, ""}};
    for (const auto& word : kWords) {
        if (word.number == Protocol(e)) {
            line.Add("%s, ", word.word);
            return;
        }
    }
    line.Add("%d, ", static_cast<int>(Protocol(e)));
}

void AddTcpFlags(Line& line, const unsigned char* e) {
    if (Protocol(e) != 6 || !(e[0x26] & 0x40)) return;
    static const char* const kWords[] = {"CWR ", "ECE ", "URG ", "ACK ",
                                         "PSH ", "RST ", "SYN ", "FIN "};
    for (int i = 0; i < 8; ++i) {
        if (e[0xA9] & 0x80 >> i) line.Add("%s", kWords[i]);
    }
}

void AddFragments(Line& line, const unsigned char* e) {
    if (!(e[0x26] & 0x10)) return;
    const bool dont = e[0x7A] & 0x40;
    const bool more = e[0x7A] & 0x20;
    const int reason = Signed16(e + 0x16);
    if (reason >= 108 && reason <= 112) {
        line.Add("DF=%d", dont);
        line.Add(" MF=%d", more);
        line.Add(" FragOffs=%d IPTotalLen=%d", static_cast<int>(Wire16(e + 0x7A) << 3 & 0xFFF8),
                 static_cast<int>(Wire16(e + 0x76)));
        return;
    }
    if (dont) line.Add("DF=1");
    if (dont && more) line.Add(" ");
    if (more) line.Add("MF=1");
}

void AddDetails(Line& line, const unsigned char* e) {
    AddTcpFlags(line, e);
    if ((e[0x26] & 0x50) == 0x50 && e[0x7D] == 1) {
        line.Add("Type:%d Code:%d", e[0x9C], e[0x9D]);
    }
    AddFragments(line, e);
    line.Add(", ");
}

// `v4`, `v6` and `port` are the offsets of one end's fields.
void AddEnd(Line& line, const unsigned char* e, int v4, int v6, int port) {
    if (e[0x26] & 0x10) {
        line.Add("%d.%d.%d.%d", e[v4], e[v4 + 1], e[v4 + 2], e[v4 + 3]);
    } else if (e[0x26] & 0x20) {
        uint16_t group[8];
        for (int i = 0; i < 8; ++i)
            group[i] = static_cast<uint16_t>(Wire16(e + v6 + 2 * i));
        line.Add("%hx:%hx:%hx:%hx:%hx:%hx:%hx:%hx", group[0], group[1], group[2], group[3],
                 group[4], group[5], group[6], group[7]);
    }
    line.Add(", ");
    if (HasPortNumbers(e)) line.Add("%d", static_cast<int>(Wire16(e + port)));
    line.Add(", ");
}

unsigned ShownDpiFlags(unsigned flags) {
    return (flags & 0x01 ? 0x20 : 0) + (flags & 0x02 ? 0x08 : 0) + (flags & 0x04 ? 0x10 : 0) +
           (flags & 0x08 ? 0x01 : 0) + (flags & 0x10 ? 0x02 : 0) + (flags & 0x20 ? 0x04 : 0);
}

void AddNumbers(Line& line, const unsigned char* e, int interfaceId) {
    line.Add("%u, ", U32(e + 0x34));
    line.Add("%d, ", Signed16(e + 0x14));
    line.Add("%d, ", Signed16(e + 0x16));
    line.Add("%d, ", static_cast<int>(U32(e + 0x18)));
    line.Add("%d, ", interfaceId);
    for (unsigned i = 0; i < std::min(U16(e + 0x38), 16u); ++i)
        line.Add("%02X", e[0x3C + i]);
    line.Add(", ");
    line.Add("%u, ", U16(e + 0x24));
    line.Add("%u, ", U32(e + 0x20));
    line.Add("%u, ", ShownDpiFlags(e[0x54]));
    line.Add("%u, ", U16(e + 0x64));
    if (e[0x54] & 0x06) line.Add("%u", U16(e + 0x4E));
    line.Add(", ");
}

// What the length claims beyond the bytes at hand reads as zero.
void AddDump(std::string& text, const unsigned char* bytes, size_t available, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        const unsigned byte = i < available ? bytes[i] : 0;
        text += "0123456789ABCDEF"[byte / 16];
        text += "0123456789ABCDEF"[byte % 16];
    }
}

long long Usec(const unsigned char* seconds) {
    return static_cast<long long>(uint64_t{U32(seconds)} * 1000000 + U32(seconds + 4));
}

}  // namespace

std::string RecordText(const RecordBytes& record, int interfaceId) {
    const unsigned char* e = record.fixed;
    Line line;
    line.Add("%s, ", Signed16(e + 0x16) < 0 ? "d" : "f");
    line.Add("%d, ", e[0x26] & 0x01 ? 1 : 0);
    line.Add("%d, ", e[0x26] & 0x02 ? 0 : 1);
    AddHexAddress(line, e + 0x2C, std::min(U32(e + 0x28), 8u));
    AddFrameType(line, e);
    AddHexAddress(line, e + 0x6C, e[0x26] & 0x08 ? 6 : 0);
    AddHexAddress(line, e + 0x66, e[0x26] & 0x08 ? 6 : 0);
    AddProtocol(line, e);
    AddDetails(line, e);
    AddEnd(line, e, 0x80, 0x7C, 0x9C);
    AddEnd(line, e, 0x84, 0x8C, 0x9E);
    AddNumbers(line, e, interfaceId);

    std::string text(line.text, line.length);
    constexpr size_t kRoom = 65536 - 180;
    const size_t packetBytes = std::min(record.packetDataLength, kRoom);
    if (e[0x54] & 0x02) AddDump(text, record.packetData, packetBytes, U16(e + 0x4C));
    text += ", ";
    const size_t logBytes = std::min<size_t>(U16(e + 0x3A), record.logDataLength);
    AddDump(text, record.logData, logBytes, logBytes);
    return text;
}

long long FirstTime(const unsigned char* fixed) {
    return Usec(fixed);
}

long long LastTime(const unsigned char* fixed) {
    return Usec(fixed + 0x58);
}

}  // namespace Reference
