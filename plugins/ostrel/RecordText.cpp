#include "RecordText.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace OSTREL {

namespace {

constexpr size_t kMaxInterfaceAddress = sizeof(velm_log_entry_s::log_if_addr);
constexpr size_t kMaxNote = sizeof(velm_log_entry_s::log_note);
constexpr unsigned int kDontFragment = 0x4000;
constexpr unsigned int kMoreFragments = 0x2000;

constexpr const char* kSeparator = ", ";

bool Has(const velm_log_entry_s& entry, uint8_t flag) {
    return (entry.log_flags & flag) != 0;
}

bool HasIp(const velm_log_entry_s& entry) {
    return Has(entry, LOG_FLAG_IPV4) || Has(entry, LOG_FLAG_IPV6);
}

void AppendIPv4(TextCursor& text, uint32_t address) {
    uint8_t bytes[4];
    memcpy(bytes, &address, sizeof bytes);
    text.PutNumber(unsigned{bytes[0]});
    for (int i = 1; i < 4; ++i) {
        text.Put('.');
        text.PutNumber(unsigned{bytes[i]});
    }
}

void AppendIPv6(TextCursor& text, const pk_ipv6_addr_u& address) {
    for (int i = 0; i < 8; ++i) {
        if (i > 0) text.Put(':');
        text.PutNumber(unsigned{ntohs(address.words[i])}, 16);
    }
}

void AppendEndpoint(TextCursor& text, const velm_log_entry_s& entry, bool isSource) {
    if (isSource) {
        AppendSourceAddress(text, entry);
    } else {
        AppendDestinationAddress(text, entry);
    }
    text.Put(kSeparator);
    if (HasPorts(&entry)) {
        const pk_udph_s& ports = entry.log_transport.udp;
        text.PutNumber(unsigned{ntohs(isSource ? ports.udph_sport : ports.udph_dport)});
    }
    text.Put(kSeparator);
}

// Columns of the frame: interface address, frame type, both hardware addresses.
void AppendLink(TextCursor& text, const velm_log_entry_s& entry) {
    AppendInterfaceAddress(text, entry.log_if_addr,
                           std::min<size_t>(entry.log_if_addr_len, kMaxInterfaceAddress));
    text.Put(kSeparator);
    AppendFrameType(text, entry);
    text.Put(kSeparator);
    const size_t length = Has(entry, LOG_FLAG_ETH) ? sizeof entry.log_eth.eth_src : 0;
    AppendInterfaceAddress(text, entry.log_eth.eth_src, length);
    text.Put(kSeparator);
    AppendInterfaceAddress(text, entry.log_eth.eth_dest, length);
    text.Put(kSeparator);
}

template <class Integer>
void AppendNumberColumn(TextCursor& text, Integer value) {
    text.PutNumber(value);
    text.Put(kSeparator);
}

void AppendNote(TextCursor& text, const velm_log_entry_s& entry) {
    const size_t length = NoteLength(entry);
    for (size_t i = 0; i < length; ++i)
        text.PutHexByte(entry.log_note[i]);
    text.Put(kSeparator);
}

}  // namespace

int ProtocolOf(const velm_log_entry_s& entry) {
    if (Has(entry, LOG_FLAG_IPV4)) return entry.log_ip.v4.iph_proto;
    if (Has(entry, LOG_FLAG_IPV6)) return entry.log_ip.v6.ipv6h_next;
    return kNoProtocol;
}

bool HasPorts(const velm_log_entry_s* entry) {
    if (!Has(*entry, LOG_FLAG_TRANSPORT)) return false;
    const int protocol = ProtocolOf(*entry);
    return protocol == IP_PROTO_TCP || protocol == IP_PROTO_UDP;
}

FragmentFields FragmentsOf(const velm_log_entry_s& entry) {
    const unsigned int fragments = ntohs(entry.log_ip.v4.iph_frag);
    return {(fragments & kDontFragment) != 0, (fragments & kMoreFragments) != 0,
            (fragments << 3) & 0xFFF8u};
}

size_t NoteLength(const velm_log_entry_s& entry) {
    return std::min<size_t>(entry.log_note_len, kMaxNote);
}

unsigned int RemappedDpiFlags(uint8_t dpiFlags) {
    static constexpr struct {
        uint8_t bit;
        uint8_t shown;
    } kBits[] = {{0x01, 0x20}, {0x02, 0x08}, {0x04, 0x10},
                 {0x08, 0x01}, {0x10, 0x02}, {0x20, 0x04}};
    unsigned int shown = 0;
    for (const auto& bit : kBits) {
        if (dpiFlags & bit.bit) shown |= bit.shown;
    }
    return shown;
}

long long FirstTimeOf(const velm_log_entry_s& entry) {
    const uint64_t usec = uint64_t{entry.log_first_sec} * 1000000 + entry.log_first_usec;
    return static_cast<long long>(usec);
}

long long LastTimeOf(const velm_log_entry_s& entry) {
    const uint64_t usec = uint64_t{entry.log_last_sec} * 1000000 + entry.log_last_usec;
    return static_cast<long long>(usec);
}

void AppendInterfaceAddress(TextCursor& text, const uint8_t* address, size_t length) {
    // Each byte as three characters at once; the first one's blank is left out.
    char digits[3 * kMaxInterfaceAddress];
    for (size_t done = 0; done < length; done += kMaxInterfaceAddress) {
        const size_t count = std::min(length - done, kMaxInterfaceAddress);
        for (size_t i = 0; i < count; ++i) {
            digits[3 * i] = ' ';
            digits[3 * i + 1] = TextCursor::kHexDigits[address[done + i] >> 4];
            digits[3 * i + 2] = TextCursor::kHexDigits[address[done + i] & 0x0F];
        }
        const size_t skipped = done == 0 ? 1 : 0;
        text.Put(std::string_view(digits + skipped, 3 * count - skipped));
    }
}

void AppendFrameType(TextCursor& text, const velm_log_entry_s& entry) {
    if (!Has(entry, LOG_FLAG_ETH)) {
        if (HasIp(entry)) text.Put(Has(entry, LOG_FLAG_IPV4) ? "IP" : "IPv6");
        return;
    }
    const unsigned int type = ntohs(entry.log_eth.eth_type);
    switch (type) {
        case 0x0800:
            return text.Put("IP");
        case 0x0806:
            return text.Put("ARP");
        case 0x8035:
            return text.Put("RevARP");
        case 0x8191:
            return text.Put("NetBEUI");
        case 0x86DD:
            return text.Put("IPv6");
    }
    if (type != 0) text.Put("0x");
    text.PutNumber(type, 16);
}

void AppendSourceAddress(TextCursor& text, const velm_log_entry_s& entry) {
    if (Has(entry, LOG_FLAG_IPV4)) {
        AppendIPv4(text, entry.log_ip.v4.iph_src);
    } else if (Has(entry, LOG_FLAG_IPV6)) {
        AppendIPv6(text, entry.log_ip.v6.ipv6h_src);
    }
}

void AppendDestinationAddress(TextCursor& text, const velm_log_entry_s& entry) {
    if (Has(entry, LOG_FLAG_IPV4)) {
        AppendIPv4(text, entry.log_ip.v4.iph_dest);
    } else if (Has(entry, LOG_FLAG_IPV6)) {
        AppendIPv6(text, entry.log_ip.v6.ipv6h_dest);
    }
}

void AppendProtocol(TextCursor& text, const velm_log_entry_s& entry) {
    const int protocol = ProtocolOf(entry);
    switch (protocol) {
        case kNoProtocol:
            return;
        case 1:
            return text.Put("ICMP");
        case 2:
            return text.Put("IGMP");
        case 3:
            return text.Put("GGP");
        case 6:
            return text.Put("TCP");
        case 12:
            return text.Put("PUP");
        case 17:
            return text.Put("UDP");
        case 22:
            return text.Put("IDP");
        case 58:
            return text.Put("ICMPv6");
        case 77:
            return text.Put("ND");
    }
    text.PutNumber(protocol);
}

void AppendTCPFlags(TextCursor& text, const velm_log_entry_s& entry) {
    if (ProtocolOf(entry) != IP_PROTO_TCP || !Has(entry, LOG_FLAG_TRANSPORT)) return;
    // From the highest bit to the lowest; each word carries its blank.
    static constexpr std::string_view kWords[] = {"CWR ", "ECE ", "URG ", "ACK ",
                                                  "PSH ", "RST ", "SYN ", "FIN "};
    const uint8_t flags = entry.log_transport.tcp.tcph_flags;
    for (int i = 0; i < 8; ++i) {
        if (flags & (0x80 >> i)) text.Put(kWords[i]);
    }
}

void AppendICMP(TextCursor& text, const velm_log_entry_s& entry) {
    const bool isIcmp = Has(entry, LOG_FLAG_IPV4) && entry.log_ip.v4.iph_proto == IP_PROTO_ICMP;
    if (!isIcmp || !Has(entry, LOG_FLAG_TRANSPORT)) return;
    text.Put("Type:");
    text.PutNumber(unsigned{entry.log_transport.icmp.icmph_type});
    text.Put(" Code:");
    text.PutNumber(unsigned{entry.log_transport.icmp.icmph_code});
}

void AppendFragFlags(TextCursor& text, const velm_log_entry_s& entry) {
    if (!Has(entry, LOG_FLAG_IPV4)) return;
    const FragmentFields fragments = FragmentsOf(entry);
    if (entry.log_reason >= LOG_REASON_FRAGMENTED &&
        entry.log_reason <= LOG_REASON_FRAGMENT_OFFSET_TOO_SMALL) {
        text.Put(fragments.dontFragment ? "DF=1" : "DF=0");
        text.Put(fragments.moreFragments ? " MF=1" : " MF=0");
        text.Put(" FragOffs=");
        text.PutNumber(fragments.offset);
        text.Put(" IPTotalLen=");
        text.PutNumber(unsigned{ntohs(entry.log_ip.v4.iph_len)});
        return;
    }
    if (fragments.dontFragment) text.Put("DF=1");
    if (fragments.dontFragment && fragments.moreFragments) text.Put(' ');
    if (fragments.moreFragments) text.Put("MF=1");
}

void AppendColumns(TextCursor& text, const velm_log_entry_s& entry, int interfaceId) {
    text.Put(entry.log_reason < 0 ? "d, " : "f, ");
    text.Put(Has(entry, LOG_FLAG_OUTGOING) ? "1, " : "0, ");
    // The opposite sense of the column in front: set means forward, and forward is not reverse.
    text.Put(Has(entry, LOG_FLAG_FORWARD) ? "0, " : "1, ");
    AppendLink(text, entry);
    AppendProtocol(text, entry);
    text.Put(kSeparator);
    AppendTCPFlags(text, entry);
    AppendICMP(text, entry);
    AppendFragFlags(text, entry);
    text.Put(kSeparator);
    AppendEndpoint(text, entry, true);
    AppendEndpoint(text, entry, false);
    AppendNumberColumn(text, uint32_t{entry.log_packet_len});
    AppendNumberColumn(text, int{static_cast<int16_t>(entry.log_action)});
    AppendNumberColumn(text, int{entry.log_reason});
    AppendNumberColumn(text, static_cast<int32_t>(entry.log_filter_id));
    AppendNumberColumn(text, interfaceId);
    AppendNote(text, entry);
    AppendNumberColumn(text, unsigned{entry.log_packet_pos});
    AppendNumberColumn(text, uint32_t{entry.log_stream_pos});
    AppendNumberColumn(text, RemappedDpiFlags(entry.log_dpi_flags));
    AppendNumberColumn(text, unsigned{entry.log_extra_value});
    if (entry.log_dpi_flags & (LOG_DPI_PACKET_DATA | LOG_DPI_TAG)) {
        text.PutNumber(unsigned{entry.log_data_tag});
    }
    text.Put(kSeparator);
}

void AppendHexDump(std::string& text, const unsigned char* data, size_t available, size_t length) {
    available = std::min(available, length);
    for (size_t i = 0; i < available; ++i) {
        text += TextCursor::kHexDigits[data[i] >> 4];
        text += TextCursor::kHexDigits[data[i] & 0x0F];
    }
    text.append(2 * (length - available), '0');
}

}  // namespace OSTREL
