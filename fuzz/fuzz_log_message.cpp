// Bytes as a packet message of the kernel's log, made an entry. What the entry claims must be what
// the message holds.

#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "Input.h"
#include "LogMessage.h"

namespace {

using Fuzz::Require;

constexpr int64_t NOW = 1700000000000000;

// A copy that ends where the message ends, so that the sanitizer sees what reads beyond it.
std::vector<uint8_t> ToMessage(const uint8_t* data, size_t size) {
    std::vector<uint8_t> message(sizeof(nlmsghdr) + size);
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(message.size());
    std::memcpy(message.data(), &header, sizeof header);
    if (size) std::memcpy(message.data() + sizeof header, data, size);
    return message;
}

void CheckEntry(const velm_log_entry_s& entry) {
    const bool isIpv4 = entry.log_flags & LOG_FLAG_IPV4;
    const bool isIpv6 = entry.log_flags & LOG_FLAG_IPV6;
    Require(isIpv4 != isIpv6, "one family");
    Require((isIpv4 ? entry.log_ip.v4.iph_vhl : entry.log_ip.v6.ipv6h_flow & 0xFF) >> 4 ==
                (isIpv4 ? 4 : 6),
            "the family's version");
    Require(entry.log_packet_len >= (isIpv4 ? 20 : 40), "a whole header");
    Require(entry.log_packet_len <= 65535 + 40, "a length that a packet may have");
    Require(entry.log_reason >= 0 && entry.log_reason < 10000, "a reason that a rule may give");
    Require(entry.log_action <= 255, "an action that a rule may give");
    Require(entry.log_first_usec < 1000000, "a time");
    Require(entry.log_repeat_count == 1, "one packet");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 70000) return 0;
    const std::vector<uint8_t> message = ToMessage(data, size);
    Kdi::LoggedPacket packet;
    std::optional<uint32_t> sequence;
    if (!Kdi::ReadLogMessage(*reinterpret_cast<const nlmsghdr*>(message.data()), NOW, packet,
                             sequence)) {
        return 0;
    }
    velm_log_entry_s entry;
    Kdi::FillEntry(packet.record, nullptr, entry);
    CheckEntry(entry);
    return 0;
}
