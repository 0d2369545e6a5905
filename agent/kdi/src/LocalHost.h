#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AddressBook.h"
#include "CaptureOptions.h"
#include "Keys.h"

namespace Kdi {

using HardwareAddress = std::array<uint8_t, 6>;

// The host that a capture was made for: its addresses, its interface, what it lets in.
class LocalHost {
public:
    explicit LocalHost(const AddressBook& book) : m_Book(&book) {}

    void Add(const Address& address);
    // The networks told decide instead of single addresses.
    void Add(const NetworkList& networks) { m_Networks = networks; }
    void SetInterface(const HardwareAddress& hardware) { m_Interface = hardware; }
    // Keys are PortKey's.
    void SetOpenPorts(FlatMap<WordKey, Nothing> ports) { m_OpenPorts = std::move(ports); }
    // The services told are open on every local address; what answers in the capture is not asked.
    void SetAllowed(const ServiceList& services) { m_Allowed = services; }

    bool IsLocal(const Address& address) const;
    bool IsOpen(uint8_t protocol, const Address& address, uint16_t port) const;
    const std::optional<HardwareAddress>& Interface() const { return m_Interface; }

    // A sentence for people: which addresses are local and how that is known.
    std::string Describe() const;

private:
    std::vector<std::string> AddressTexts() const;
    std::string Origin() const;

    const AddressBook* m_Book;
    std::optional<NetworkList> m_Networks;
    std::optional<ServiceList> m_Allowed;
    std::optional<HardwareAddress> m_Interface;
    FlatMap<WordKey, Nothing> m_Addresses;
    std::vector<Address> m_AddressList;
    FlatMap<WordKey, Nothing> m_OpenPorts;
};

}  // namespace Kdi
