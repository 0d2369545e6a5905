#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaptureBuilder.h"
#include "kdi/kdi.h"

namespace KdiTest {

enum : uint8_t { FIN = 1, SYN = 2, RST = 4, PSH = 8, ACK = 16, URG = 32 };

// A handle that closes itself.
class Handle {
public:
    explicit Handle(const std::string& source, const char* local = nullptr,
                    const char* allow = nullptr) {
        const kdi_open_options_s options{local, allow};
        char error[512] = "";
        m_Handle = kdi_open_source(source.c_str(), &options, error, sizeof error);
        m_OpenError = error;
    }
    ~Handle() {
        if (m_Handle) kdi_close(m_Handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    kdi_handle_t Get() const { return m_Handle; }
    const std::string& OpenError() const { return m_OpenError; }
    kdi_next_result Next(velm_log_entry_s& entry) {
        kdi_entry_s* next = nullptr;
        const kdi_next_result result = kdi_next_entry(m_Handle, 0, &next);
        if (result == KDI_ENTRY) entry = next->entry;
        return result;
    }
    std::vector<velm_log_entry_s> All() {
        std::vector<velm_log_entry_s> entries;
        velm_log_entry_s entry;
        while ((m_Last = Next(entry)) == KDI_ENTRY)
            entries.push_back(entry);
        return entries;
    }
    kdi_next_result Last() const { return m_Last; }
    std::string Error() const {
        char text[512] = "";
        kdi_get_error(m_Handle, text, sizeof text);
        return text;
    }
    std::string Describe() const { return kdi_describe(m_Handle); }
    kdi_statistics_s Statistics() const {
        kdi_statistics_s statistics;
        kdi_get_statistics(m_Handle, &statistics);
        return statistics;
    }

private:
    kdi_handle_t m_Handle = nullptr;
    std::string m_OpenError;
    kdi_next_result m_Last = KDI_ENTRY;
};

inline std::string AddressText(const velm_log_entry_s& entry, bool source) {
    char text[INET6_ADDRSTRLEN] = "?";
    if (entry.log_flags & LOG_FLAG_IPV4) {
        const uint32_t address = source ? entry.log_ip.v4.iph_src : entry.log_ip.v4.iph_dest;
        inet_ntop(AF_INET, &address, text, sizeof text);
    } else if (entry.log_flags & LOG_FLAG_IPV6) {
        const pk_ipv6_addr_u address =
            source ? entry.log_ip.v6.ipv6h_src : entry.log_ip.v6.ipv6h_dest;
        inet_ntop(AF_INET6, &address, text, sizeof text);
    }
    return text;
}

// "REASON ACTION FILTER in|out fwd|rev pPROTOCOL SOURCE > DESTINATION [SPORT DPORT]"
inline std::string Line(const velm_log_entry_s& entry) {
    const uint8_t protocol =
        entry.log_flags & LOG_FLAG_IPV4 ? entry.log_ip.v4.iph_proto : entry.log_ip.v6.ipv6h_next;
    std::string line = std::to_string(entry.log_reason) + " " + std::to_string(entry.log_action) +
                       " " + std::to_string(entry.log_filter_id);
    line += entry.log_flags & LOG_FLAG_OUTGOING ? " out" : " in";
    line += entry.log_flags & LOG_FLAG_FORWARD ? " fwd" : " rev";
    line += " p" + std::to_string(protocol) + " " + AddressText(entry, true) + " > " +
            AddressText(entry, false);
    if ((entry.log_flags & LOG_FLAG_TRANSPORT) && (protocol == 6 || protocol == 17)) {
        line += " " + std::to_string(ntohs(entry.log_transport.tcp.tcph_sport)) + " " +
                std::to_string(ntohs(entry.log_transport.tcp.tcph_dport));
    }
    return line;
}

using Lines = std::vector<std::string>;

inline Lines ToLines(const std::vector<velm_log_entry_s>& entries) {
    Lines lines;
    for (const velm_log_entry_s& entry : entries)
        lines.push_back(Line(entry));
    return lines;
}

// A host 192.0.2.10 and 2001:db8::10, and a peer .66 and ::66 that talks to it. The test tells the
// packets; time goes on by a millisecond with each, or as the test says.
class HostTest : public testing::Test {
protected:
    static constexpr int64_t START = 1700000000000000;  // microseconds

    void At(double seconds) { m_Now = START + static_cast<int64_t>(seconds * 1e6); }
    void Put(const Bytes& frame, size_t captured = SIZE_MAX) {
        m_Capture.Add(m_Now, frame, captured);
        m_Now += 1000;
    }
    void In(const Payload& payload) {
        Put(Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", payload)));
    }
    void Out(const Payload& payload) {
        Put(Ethernet(PEER_HW, HOST_HW, Ipv4("192.0.2.10", "192.0.2.66", payload)));
    }
    void In6(const Payload& payload) {
        Put(Ethernet(HOST_HW, PEER_HW, Ipv6("2001:db8::66", "2001:db8::10", payload)));
    }
    void Out6(const Payload& payload) {
        Put(Ethernet(PEER_HW, HOST_HW, Ipv6("2001:db8::10", "2001:db8::66", payload)));
    }
    void InFragment(const Payload& payload, const Fragment& fragment) {
        Put(Ethernet(HOST_HW, PEER_HW, Ipv4("192.0.2.66", "192.0.2.10", payload, fragment)));
    }
    // The bytes of a payload from `from` on, `count` of them.
    static Payload Part(const Payload& payload, size_t from, size_t count) {
        const auto begin = payload.bytes.begin() + static_cast<std::ptrdiff_t>(from);
        return {payload.protocol, Bytes(begin, begin + static_cast<std::ptrdiff_t>(count))};
    }

    std::vector<velm_log_entry_s> Entries(const char* allow = nullptr,
                                          const char* local = "192.0.2.10,2001:db8::10") {
        Handle handle("pcap:" + m_Capture.Write(), local, allow);
        EXPECT_NE(handle.Get(), nullptr) << handle.OpenError();
        if (!handle.Get()) return {};
        auto entries = handle.All();
        EXPECT_EQ(handle.Last(), KDI_END) << handle.Error();
        return entries;
    }
    Lines Logged(const char* allow = nullptr) { return ToLines(Entries(allow)); }

    CaptureBuilder m_Capture;
    int64_t m_Now = START;
};

}  // namespace KdiTest
