#include "CaptureOptions.h"

#include <arpa/inet.h>

#include <cstring>

#include "kdi/log_entry.h"

namespace Kdi {

namespace {

// A plain decimal number from 0 to `maximum`.
bool ParseNumber(const std::string& text, unsigned int maximum, unsigned int& number) {
    if (text.empty() || text.size() > 5) return false;
    number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        number = number * 10 + static_cast<unsigned int>(c - '0');
    }
    return number <= maximum;
}

bool SameBits(const uint8_t* a, const uint8_t* b, unsigned int bits) {
    const unsigned int whole = bits / 8;
    if (std::memcmp(a, b, whole) != 0) return false;
    const unsigned int rest = bits % 8;
    return rest == 0 || (a[whole] ^ b[whole]) >> (8 - rest) == 0;
}

}  // namespace

std::vector<std::string> SplitAtCommas(const std::string& text) {
    std::vector<std::string> tokens;
    size_t start = 0;
    for (size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1) {
        tokens.push_back(text.substr(start, comma - start));
    }
    tokens.push_back(text.substr(start));
    return tokens;
}

bool NetworkList::ParseNetwork(const std::string& token, Network& network) {
    const size_t slash = token.find('/');
    const std::string address = token.substr(0, slash);
    network.family = address.find(':') == std::string::npos ? 4 : 6;
    if (inet_pton(network.family == 4 ? AF_INET : AF_INET6, address.c_str(), network.bytes) != 1) {
        return false;
    }
    unsigned int prefixLen = network.family == 4 ? 32 : 128;
    if (slash != std::string::npos && !ParseNumber(token.substr(slash + 1), prefixLen, prefixLen)) {
        return false;
    }
    network.prefixLen = static_cast<uint8_t>(prefixLen);
    return true;
}

bool NetworkList::Parse(const std::string& text, const char* kind, std::string& error) {
    m_Tokens = SplitAtCommas(text);
    for (const std::string& token : m_Tokens) {
        Network network = {};
        if (!ParseNetwork(token, network)) {
            error = std::string(kind) + " \"" + token + "\" is no address and no CIDR network";
            return false;
        }
        m_Networks.push_back(network);
    }
    return true;
}

bool NetworkList::Contains(uint8_t family, const uint8_t* bytes) const {
    for (const Network& network : m_Networks) {
        if (network.family == family && SameBits(network.bytes, bytes, network.prefixLen)) {
            return true;
        }
    }
    return false;
}

bool ServiceList::ParseService(const std::string& token) {
    if (token == "icmp") {
        m_Icmp = true;
        return true;
    }
    unsigned int port = 0;
    if (token.size() < 4 || !ParseNumber(token.substr(4), 65535, port)) return false;
    const std::string protocol = token.substr(0, 4);
    if (protocol != "tcp/" && protocol != "udp/") return false;
    (protocol == "tcp/" ? m_Tcp : m_Udp).set(port);
    return true;
}

bool ServiceList::Parse(const std::string& text, std::string& error) {
    for (const std::string& token : SplitAtCommas(text)) {
        if (!ParseService(token)) {
            error = "allowed service \"" + token + "\" is not like tcp/80, udp/53 or icmp";
            return false;
        }
    }
    return true;
}

bool ServiceList::Has(uint8_t protocol, uint16_t port) const {
    if (protocol == IP_PROTO_TCP) return m_Tcp.test(port);
    if (protocol == IP_PROTO_UDP) return m_Udp.test(port);
    return m_Icmp;
}

}  // namespace Kdi
