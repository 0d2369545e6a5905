#include "PacketReader.h"

#include <poll.h>

#include <cerrno>
#include <cstring>

namespace Kdi {

namespace {

constexpr int SNAP_LEN = 262144;      // bytes: also of what a card has put together
constexpr int BUFFER_SIZE = 8 << 20;  // bytes
constexpr int GATHER_MSEC = 100;      // how long the kernel may collect packets

}  // namespace

Frame FileReader::Parse() const {
    return ParseFrame(m_File.Link(), m_File.Bytes(), m_File.Captured(), m_File.WireLen());
}

InterfaceReader::~InterfaceReader() {
    if (m_Pcap) pcap_close(m_Pcap);
}

bool InterfaceReader::Fail(const std::string& reason) {
    m_Error = "cannot read interface " + m_Name + ": " + reason;
    return false;
}

bool InterfaceReader::Open(const std::string& filter) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    m_Pcap = pcap_create(m_Name.c_str(), reason);
    if (!m_Pcap) return Fail(reason);
    return SetUp() && CheckLink() && SetFilter(filter);
}

bool InterfaceReader::SetUp() {
    pcap_set_snaplen(m_Pcap, SNAP_LEN);
    pcap_set_buffer_size(m_Pcap, BUFFER_SIZE);
    pcap_set_timeout(m_Pcap, GATHER_MSEC);
    const int result = pcap_activate(m_Pcap);
    if (result < 0) {
        const char* detail = pcap_geterr(m_Pcap);
        return Fail(*detail ? detail : pcap_statustostr(result));
    }
    char reason[PCAP_ERRBUF_SIZE] = "";
    if (pcap_setnonblock(m_Pcap, 1, reason) != 0) return Fail(reason);
    return true;
}

bool InterfaceReader::CheckLink() {
    const int type = pcap_datalink(m_Pcap);
    if (FindLinkType(type, m_Link)) return true;
    const char* name = pcap_datalink_val_to_name(type);
    return Fail("link type " + (name ? std::string(name) : std::to_string(type)) +
                " is not supported");
}

bool InterfaceReader::SetFilter(const std::string& filter) {
    bpf_program program;
    if (pcap_compile(m_Pcap, &program, filter.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0)
        return Fail(pcap_geterr(m_Pcap));
    const int result = pcap_setfilter(m_Pcap, &program);
    pcap_freecode(&program);
    return result == 0 || Fail(pcap_geterr(m_Pcap));
}

bool InterfaceReader::Next() {
    for (;;) {
        const int result = pcap_next_ex(m_Pcap, &m_Header, &m_Bytes);
        if (result == 1) return true;
        if (result != 0) return Fail(pcap_geterr(m_Pcap));
        if (!Wait()) return false;
    }
}

// False if Stop was called.
bool InterfaceReader::Wait() {
    pollfd waits[] = {{pcap_get_selectable_fd(m_Pcap), POLLIN, 0},
                      {m_Wake.Descriptor(), POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 && errno != EINTR) return Fail(std::strerror(errno));
    return (waits[1].revents & POLLIN) == 0;
}

Frame InterfaceReader::Parse() const {
    return ParseFrame(m_Link, m_Bytes, m_Header->caplen, m_Header->len);
}

int64_t InterfaceReader::TimeUsec() const {
    return int64_t{m_Header->ts.tv_sec} * 1000000 + m_Header->ts.tv_usec;
}

uint64_t InterfaceReader::Lost() const {
    pcap_stat statistics = {};
    return pcap_stats(m_Pcap, &statistics) == 0 ? statistics.ps_drop : 0;
}

}  // namespace Kdi
