#pragma once

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

// Builds frames and capture files as bytes, for tests.
namespace KdiTest {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Bytes Big16(unsigned int value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}
inline Bytes Big32(uint32_t value) {
    return Big16(value >> 16) + Big16(value & 0xFFFF);
}
inline Bytes Little32(uint32_t value) {
    const Bytes big = Big32(value);
    return {big[3], big[2], big[1], big[0]};
}

inline Bytes Ip(const std::string& text) {
    Bytes bytes(text.find(':') == std::string::npos ? 4 : 16);
    inet_pton(bytes.size() == 4 ? AF_INET : AF_INET6, text.c_str(), bytes.data());
    return bytes;
}

// What stands behind an IP header.
struct Payload {
    uint8_t protocol;
    Bytes bytes;
};

inline Payload Tcp(unsigned int source, unsigned int destination, uint8_t flags) {
    return {6, Big16(source) + Big16(destination) + Big32(0x01020304) + Big32(0x05060708) +
                   Bytes{0x50, flags} + Big16(1024) + Big16(0xABCD) + Big16(0)};
}
inline Payload Udp(unsigned int source, unsigned int destination, const Bytes& data = {1, 2, 3}) {
    return {17, Big16(source) + Big16(destination) +
                    Big16(static_cast<unsigned int>(data.size()) + 8) + Big16(0) + data};
}
inline Payload Icmp(uint8_t type, uint8_t code, const Bytes& rest) {
    return {1, Bytes{type, code, 0, 0} + rest};
}
inline Payload Icmp6(uint8_t type, uint8_t code, const Bytes& rest) {
    return {58, Bytes{type, code, 0, 0} + rest};
}

struct Fragment {
    unsigned int offset;  // bytes
    bool more;
    unsigned int id;
};

inline Bytes Ipv4(const std::string& source, const std::string& destination, const Payload& payload,
                  const Fragment& fragment = {0, false, 7}) {
    const unsigned int bits = fragment.offset / 8 | (fragment.more ? 0x2000 : 0);
    const unsigned int length = static_cast<unsigned int>(payload.bytes.size()) + 20;
    return Bytes{0x45, 0} + Big16(length) + Big16(fragment.id) + Big16(bits) +
           Bytes{64, payload.protocol} + Big16(0) + Ip(source) + Ip(destination) + payload.bytes;
}

inline Bytes Ipv6(const std::string& source, const std::string& destination,
                  const Payload& payload) {
    return Big32(0x60000000) + Big16(static_cast<unsigned int>(payload.bytes.size())) +
           Bytes{payload.protocol, 64} + Ip(source) + Ip(destination) + payload.bytes;
}

inline Bytes IpPacket(const std::string& source, const std::string& destination,
                      const Payload& payload) {
    return source.find(':') == std::string::npos ? Ipv4(source, destination, payload)
                                                 : Ipv6(source, destination, payload);
}

inline unsigned int TypeOf(const Bytes& ip) {
    return ip[0] >> 4 == 4 ? 0x0800 : 0x86DD;
}

inline const Bytes HOST_HW = {0x02, 0, 0, 0, 0, 0x0A};
inline const Bytes PEER_HW = {0x02, 0, 0, 0, 0, 0x42};
inline const Bytes ALL_HW = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

inline Bytes Ethernet(const Bytes& destination, const Bytes& source, const Bytes& ip) {
    return destination + source + Big16(TypeOf(ip)) + ip;
}

enum : uint32_t {
    DLT_BSD = 0,
    DLT_ETHERNET = 1,
    DLT_RAW_IP = 101,
    DLT_COOKED = 113,
    DLT_COOKED2 = 276
};

// A pcap file that is gone with the object.
class CaptureBuilder {
public:
    CaptureBuilder() {
        char path[] = "/tmp/kdi-test-XXXXXX";
        const int descriptor = mkstemp(path);
        if (descriptor >= 0) close(descriptor);
        m_Path = path;
    }
    ~CaptureBuilder() { std::remove(m_Path.c_str()); }
    CaptureBuilder(const CaptureBuilder&) = delete;
    CaptureBuilder& operator=(const CaptureBuilder&) = delete;

    void SetLink(uint32_t link) { m_Link = link; }
    void Add(int64_t usec, const Bytes& frame, size_t captured = SIZE_MAX) {
        const size_t length = std::min(captured, frame.size());
        m_Records = std::move(m_Records) + Little32(static_cast<uint32_t>(usec / 1000000)) +
                    Little32(static_cast<uint32_t>(usec % 1000000)) +
                    Little32(static_cast<uint32_t>(length)) +
                    Little32(static_cast<uint32_t>(frame.size())) +
                    Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
    }
    Bytes Content() const {
        return Bytes{0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0} + Little32(0) + Little32(0) +
               Little32(65535) + Little32(m_Link) + m_Records;
    }
    const std::string& Write() const { return Write(Content()); }
    const std::string& Write(const Bytes& content) const {
        std::ofstream file(m_Path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
        return m_Path;
    }
    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path;
    uint32_t m_Link = DLT_ETHERNET;
    Bytes m_Records;
};

}  // namespace KdiTest
