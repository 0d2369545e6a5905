#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <vector>

namespace Kdi {

// "CIDR[,CIDR...]" of both families; an address without a prefix length stands for itself.
class NetworkList {
public:
    // False if a token is no network; `error` then names it as a `kind`.
    bool Parse(const std::string& text, const char* kind, std::string& error);
    // `bytes`: 4 or 16 in network byte order, by family.
    bool Contains(uint8_t family, const uint8_t* bytes) const;
    const std::vector<std::string>& Tokens() const { return m_Tokens; }

private:
    struct Network {
        uint8_t family;
        uint8_t prefixLen;  // bits
        uint8_t bytes[16];
    };
    static bool ParseNetwork(const std::string& token, Network& network);

    std::vector<Network> m_Networks;
    std::vector<std::string> m_Tokens;
};

// "tcp/80,udp/53,icmp": what the host lets in. "icmp" stands for echo requests of both families.
class ServiceList {
public:
    bool Parse(const std::string& text, std::string& error);
    // `port` does not matter for ICMP.
    bool Has(uint8_t protocol, uint16_t port) const;

private:
    bool ParseService(const std::string& token);

    std::bitset<65536> m_Tcp;
    std::bitset<65536> m_Udp;
    bool m_Icmp = false;
};

// The pieces between the commas, empty ones included.
std::vector<std::string> SplitAtCommas(const std::string& text);

}  // namespace Kdi
