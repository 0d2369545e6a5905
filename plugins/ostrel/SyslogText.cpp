#include "SyslogText.h"

#include <arpa/inet.h>

#include "RecordText.h"

namespace OSTREL {

namespace {

std::string_view Key(int format, std::string_view upper, std::string_view lower) {
    return format == kFormatUpperCase ? upper : lower;
}

bool IsIPv4(const velm_log_entry_s& entry) {
    return (entry.log_flags & LOG_FLAG_IPV4) != 0;
}

bool HasTransport(const velm_log_entry_s& entry) {
    return (entry.log_flags & LOG_FLAG_TRANSPORT) != 0;
}

}  // namespace

void AppendItem(TextCursor& text, std::string_view key, std::string_view value) {
    text.Put(' ');
    text.Put(key);
    text.Put('=');
    text.Put(value);
}

void AppendLabel(int format, TextCursor& text, std::string_view key, std::string_view label) {
    if (format < kFormatExtended) return;
    text.Put(' ');
    text.Put(key);
    text.Put("Label=");
    text.Put(label);
}

void AppendIPsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    if (ProtocolOf(entry) == kNoProtocol) return;
    AppendItem(text, Key(format, "SRC", "src"), {});
    AppendSourceAddress(text, entry);
    AppendItem(text, Key(format, "DST", "dst"), {});
    AppendDestinationAddress(text, entry);
}

void AppendFragFlagsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    if (!IsIPv4(entry)) return;
    const FragmentFields fragments = FragmentsOf(entry);
    if (!fragments.dontFragment && !fragments.moreFragments) return;
    if (format == kFormatUpperCase) {
        if (fragments.dontFragment) text.Put(" DF");
        if (fragments.moreFragments) text.Put(" MF");
        return AppendNumberItem(text, "FRAG", fragments.offset);
    }
    AppendItem(text, "cs3", {});
    if (fragments.dontFragment) text.Put("DF ");
    if (fragments.moreFragments) text.Put("MF ");
    text.PutNumber(fragments.offset);
    AppendLabel(format, text, "cs3", "Fragmentation Bits");
}

void AppendProtocolSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    AppendItem(text, Key(format, "PROTO", "proto"), {});
    AppendProtocol(text, entry);
}

void AppendPortsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    if (!HasPorts(&entry)) return;
    const pk_udph_s& ports = entry.log_transport.udp;
    AppendNumberItem(text, Key(format, "SPT", "spt"), unsigned{ntohs(ports.udph_sport)});
    AppendNumberItem(text, Key(format, "DPT", "dpt"), unsigned{ntohs(ports.udph_dport)});
}

void AppendTCPFlagsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    if (ProtocolOf(entry) != IP_PROTO_TCP || !HasTransport(entry)) return;
    const uint8_t flags = entry.log_transport.tcp.tcph_flags;
    // The two top bits are a number, the six others words.
    AppendItem(text, Key(format, "RES", "cs2"), "0x");
    text.PutHexByte(flags >> 6);
    static constexpr std::string_view kWords[] = {" URG", " ACK", " PSH", " RST", " SYN", " FIN"};
    for (int i = 0; i < 6; ++i) {
        if (flags & (TCP_FLAG_URG >> i)) text.Put(kWords[i]);
    }
    AppendLabel(format, text, "cs2", "TCP Flags");
}

void AppendICMPSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    if (!IsIPv4(entry) || entry.log_ip.v4.iph_proto != IP_PROTO_ICMP || !HasTransport(entry))
        return;
    const pk_icmph_s& icmp = entry.log_transport.icmp;
    AppendNumberItem(text, Key(format, "TYPE", "cs4"), unsigned{icmp.icmph_type});
    text.Put(Key(format, " CODE=", " "));
    text.PutNumber(unsigned{icmp.icmph_code});
    AppendLabel(format, text, "cs4", "ICMP");
}

void AppendRepeatCountSyslog(int format, TextCursor& text, const velm_log_entry_s& entry) {
    AppendNumberItem(text, Key(format, "CNT", "cnt"), uint32_t{entry.log_repeat_count});
}

void AppendLengthSyslog(TextCursor& text, unsigned int length, std::string_view key) {
    AppendNumberItem(text, key, length);
}

}  // namespace OSTREL
