#include "LocalHost.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Kdi {

namespace {

// How many addresses a sentence holds.
constexpr size_t MAX_TOLD = 12;

std::string AddressText(uint8_t family, const uint8_t* bytes) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family == 4 ? AF_INET : AF_INET6, bytes, text, sizeof text);
    return text;
}

std::string HardwareText(const HardwareAddress& hardware) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", hardware[0], hardware[1],
                  hardware[2], hardware[3], hardware[4], hardware[5]);
    return text;
}

std::string Join(const std::vector<std::string>& words) {
    std::string text;
    const size_t told = std::min(words.size(), MAX_TOLD);
    for (size_t i = 0; i < told; ++i)
        text += (i ? ", " : "") + words[i];
    if (told < words.size()) text += " and " + std::to_string(words.size() - told) + " more";
    return text;
}

}  // namespace

void LocalHost::Add(const Address& address) {
    const auto [value, isNew] = m_Addresses.Insert(AddressKey(address));
    if (isNew) m_AddressList.push_back(address);
}

bool LocalHost::IsLocal(const Address& address) const {
    if (!m_Networks) return m_Addresses.Find(AddressKey(address)) != nullptr;
    if (address.family == 6) return m_Networks->Contains(6, m_Book->Bytes(address).data());
    uint8_t bytes[4];
    std::memcpy(bytes, &address.value, sizeof bytes);
    return m_Networks->Contains(4, bytes);
}

bool LocalHost::IsOpen(uint8_t protocol, const Address& address, uint16_t port) const {
    if (m_Allowed) return m_Allowed->Has(protocol, port);
    return m_OpenPorts.Find(PortKey(protocol, address, port)) != nullptr;
}

std::vector<std::string> LocalHost::AddressTexts() const {
    if (m_Networks) return m_Networks->Tokens();
    std::vector<V6Bytes> v4, v6;
    for (const Address& address : m_AddressList) {
        V6Bytes bytes = {};
        if (address.family == 6) bytes = m_Book->Bytes(address);
        if (address.family == 4) std::memcpy(bytes.data(), &address.value, sizeof address.value);
        (address.family == 4 ? v4 : v6).push_back(bytes);
    }
    std::sort(v4.begin(), v4.end());
    std::sort(v6.begin(), v6.end());
    std::vector<std::string> texts;
    texts.reserve(v4.size() + v6.size());
    for (const V6Bytes& bytes : v4)
        texts.push_back(AddressText(4, bytes.data()));
    for (const V6Bytes& bytes : v6)
        texts.push_back(AddressText(6, bytes.data()));
    return texts;
}

std::string LocalHost::Origin() const {
    if (m_Networks) return "as told";
    if (m_Interface) return "from the capture: interface " + HardwareText(*m_Interface);
    return "from the capture: more connections begin towards them than they begin";
}

std::string LocalHost::Describe() const {
    const std::vector<std::string> texts = AddressTexts();
    if (texts.empty()) return "no local address found in the capture";
    return (texts.size() == 1 ? "local address " : "local addresses ") + Join(texts) + " (" +
           Origin() + ")";
}

}  // namespace Kdi
