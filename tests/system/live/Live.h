#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "Namespaces.h"
#include "Replay.h"
#include "kdi/kdi.h"

namespace LiveTest {

using KdiTest::Bytes;
using KdiTest::Payload;
using KdiTest::Tcp;
using KdiTest::Udp;
using Entries = std::vector<velm_log_entry_s>;
using KdiTest::ACK;
using KdiTest::FIN;
using KdiTest::PSH;
using KdiTest::RST;
using KdiTest::SYN;
using KdiTest::URG;

// Far more than anything here takes, on a machine that has much else to do.
constexpr auto PATIENCE = std::chrono::seconds(60);

template <typename Condition>
bool Eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
    }
    return true;
}

class LiveHandle {
public:
    explicit LiveHandle(const kdi_open_options_s& options = {}) {
        char error[512] = "";
        m_Handle = kdi_open_source("nflog:5", &options, error, sizeof error);
        m_OpenError = error;
    }
    ~LiveHandle() {
        if (m_Handle) kdi_close(m_Handle);
    }
    LiveHandle(const LiveHandle&) = delete;
    LiveHandle& operator=(const LiveHandle&) = delete;

    kdi_handle_t Get() const { return m_Handle; }
    const std::string& OpenError() const { return m_OpenError; }
    // An entry, if one comes within the time.
    bool Next(velm_log_entry_s& entry, unsigned int timeoutMsec) {
        kdi_entry_s* next = nullptr;
        if (kdi_next_entry(m_Handle, timeoutMsec, &next) != KDI_ENTRY) return false;
        entry = next->entry;
        return true;
    }
    // Waits for so many entries.
    Entries Take(size_t count) {
        Entries entries;
        Eventually([&] {
            velm_log_entry_s entry;
            if (entries.size() < count && Next(entry, 100)) entries.push_back(entry);
            return entries.size() == count;
        });
        return entries;
    }
    // What comes until nothing has come for a while.
    Entries TakeAll() {
        Entries entries;
        velm_log_entry_s entry;
        while (Next(entry, 500))
            entries.push_back(entry);
        return entries;
    }
    // Does the source's own work until the condition holds.
    template <typename Condition>
    bool WorkUntil(Condition condition) {
        return Eventually([&] {
            velm_log_entry_s entry;
            return condition() || (Next(entry, 50), condition());
        });
    }

    int Block(const std::string& address, uint32_t seconds) {
        const kdi_blacklist_s record{0, 4, {0, 0}, seconds * 1000, inet_addr(address.c_str())};
        return kdi_add_blacklist(m_Handle, &record);
    }
    int Unblock(const std::string& address) {
        return kdi_unblock(m_Handle, inet_addr(address.c_str()));
    }
    std::vector<kdi_block_s> Blocks() const {
        std::vector<kdi_block_s> blocks(kdi_list_blocks(m_Handle, nullptr, 0));
        kdi_list_blocks(m_Handle, blocks.data(), static_cast<unsigned int>(blocks.size()));
        return blocks;
    }
    std::string Error() const {
        char text[512] = "";
        kdi_get_error(m_Handle, text, sizeof text);
        return text;
    }
    std::string Message() const {
        char text[512] = "";
        kdi_take_message(m_Handle, text, sizeof text);
        return text;
    }
    kdi_statistics_s Statistics() const {
        kdi_statistics_s statistics;
        kdi_get_statistics(m_Handle, &statistics);
        return statistics;
    }

private:
    kdi_handle_t m_Handle = nullptr;
    std::string m_OpenError;
};

class Live : public Namespaces {
protected:
    void SetUp() override {
        Namespaces::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        // Crafted packets have no checksum of their transport.
        SetKernel("netfilter/nf_conntrack_checksum", "0");
        m_Raw = AtPeer([] { return Descriptor(socket(AF_INET, SOCK_RAW, IPPROTO_RAW)); });
        ASSERT_GE(m_Raw.Get(), 0);
    }

    static void LoadRuleset() { Shell("nft -f " VELM_RULESET); }
    // Writes a setting of the host's network.
    static void SetKernel(const std::string& name, const std::string& value) {
        std::ofstream file("/proc/sys/net/" + name);
        file << value << std::endl;
        ASSERT_TRUE(file.good()) << name;
    }
    // The peer sends a datagram to UDP port 4 of the host's IPv6 address.
    void SendIpv6() {
        AtPeer([] {
            const Descriptor udp(socket(AF_INET6, SOCK_DGRAM, 0));
            sockaddr_in6 to{};
            to.sin6_family = AF_INET6;
            to.sin6_port = htons(4);
            inet_pton(AF_INET6, HOST6, &to.sin6_addr);
            ASSERT_EQ(sendto(udp.Get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof to), 1);
        });
    }
    // The peer sends a packet; the kernel fills in the IP checksum.
    void Send(const Payload& payload, const char* source = PEER) const {
        const Bytes packet = KdiTest::Ipv4(source, HOST, payload);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = inet_addr(HOST);
        ASSERT_EQ(sendto(m_Raw.Get(), packet.data(), packet.size(), 0,
                         reinterpret_cast<const sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(packet.size()))
            << std::strerror(errno);
    }

private:
    Descriptor m_Raw;
};

// What the kernel's set holds, as nftables prints it.
inline std::string BlockedSet() {
    return OutputOf("nft list set inet velm blocked4 2>&1");
}
inline bool IsInSet(const std::string& address) {
    return BlockedSet().find(address + " ") != std::string::npos;
}

}  // namespace LiveTest
