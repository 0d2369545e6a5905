#pragma once

#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <linux/netlink.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "CaptureBuilder.h"

// Packet messages of the kernel's log, as bytes.
namespace KdiTest {

// Behind the message stands nothing, so that a sanitizer sees what reads beyond it.
class LogMessageBytes {
public:
    // `content`: the four bytes of family, version and group, then the attributes.
    explicit LogMessageBytes(const Bytes& content) : m_Bytes(sizeof(nlmsghdr)) {
        nlmsghdr header{};
        header.nlmsg_len = static_cast<uint32_t>(sizeof header + content.size());
        header.nlmsg_type = NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_PACKET;
        std::memcpy(m_Bytes.data(), &header, sizeof header);
        m_Bytes.insert(m_Bytes.end(), content.begin(), content.end());
    }
    const nlmsghdr& Get() const { return *reinterpret_cast<const nlmsghdr*>(m_Bytes.data()); }

private:
    Bytes m_Bytes;
};

// Length and type in the host's byte order, padded to four bytes.
inline Bytes Attribute(uint16_t type, const Bytes& value) {
    const uint16_t head[2] = {static_cast<uint16_t>(value.size() + 4), type};
    Bytes bytes(4);
    std::memcpy(bytes.data(), head, sizeof head);
    bytes = std::move(bytes) + value;
    bytes.resize((bytes.size() + 3) & ~size_t{3});
    return bytes;
}

inline Bytes Text(const std::string& text) {
    return {text.begin(), text.end()};
}

// A capture of link type NFLOG, written on a host of this byte order: the packets' bytes.
inline std::vector<Bytes> ReadNflogCapture(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const Bytes content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<Bytes> packets;
    for (size_t at = 24; at + 16 <= content.size();) {
        uint32_t length = 0;
        std::memcpy(&length, &content[at + 8], sizeof length);
        at += 16;
        if (length > content.size() - at) break;
        const auto start = content.begin() + static_cast<std::ptrdiff_t>(at);
        packets.emplace_back(start, start + static_cast<std::ptrdiff_t>(length));
        at += length;
    }
    return packets;
}

}  // namespace KdiTest
