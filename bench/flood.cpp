// Sends a flood of TCP SYN packets on an interface, and tells how many were sent in which time.
//
//   flood INTERFACE HARDWARE_ADDRESS ADDRESS repeats|distinct SECONDS PACKETS_PER_SECOND
//
// The two addresses are the receiver's. "repeats" sends one packet again and again; "distinct"
// gives each a source address and port of its own.

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kBatch = 64;

struct __attribute__((packed)) Frame {
    ether_header ethernet;
    iphdr ip;
    tcphdr tcp;
};

uint16_t Checksum(const iphdr& header) {
    std::array<uint16_t, sizeof(header) / 2> words;
    std::memcpy(words.data(), &header, sizeof(header));
    uint32_t sum = 0;
    for (const uint16_t word : words)
        sum += word;
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~(sum + (sum >> 16)));
}

Frame FirstFrame(const std::array<unsigned int, ETH_ALEN>& hardware, in_addr destination) {
    Frame frame{};
    std::copy(hardware.begin(), hardware.end(), frame.ethernet.ether_dhost);
    frame.ethernet.ether_shost[0] = 2;
    frame.ethernet.ether_type = htons(ETHERTYPE_IP);
    frame.ip.version = 4;
    frame.ip.ihl = 5;
    frame.ip.tot_len = htons(sizeof(iphdr) + sizeof(tcphdr));
    frame.ip.ttl = 64;
    frame.ip.protocol = IPPROTO_TCP;
    frame.ip.saddr = htonl(0xC6336401);  // 198.51.100.1
    frame.ip.daddr = destination.s_addr;
    frame.ip.check = Checksum(frame.ip);
    frame.tcp.source = htons(40000);
    frame.tcp.dest = htons(8080);
    frame.tcp.doff = 5;
    frame.tcp.syn = 1;
    frame.tcp.window = htons(1024);
    return frame;
}

// The sources lie below 10.0.0.0/8, which is wide enough for any flood here.
void MakeDistinct(Frame& frame, uint32_t number) {
    frame.ip.saddr = htonl(0x0A000000 | (number & 0xFFFFFF));
    frame.ip.check = 0;
    frame.ip.check = Checksum(frame.ip);
    frame.tcp.source = htons(static_cast<uint16_t>(1024 + number % 60000));
}

class Sender {
public:
    Sender(const char* interface, const Frame& first)
        : m_Socket(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
        m_Frames.fill(first);
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
        const int one = 1;
        setsockopt(m_Socket, SOL_PACKET, PACKET_QDISC_BYPASS, &one, sizeof(one));
        if (bind(m_Socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            std::perror(interface);
            std::exit(1);
        }
        for (size_t i = 0; i < kBatch; ++i) {
            m_Parts[i] = {&m_Frames[i], sizeof(Frame)};
            m_Messages[i] = {};
            m_Messages[i].msg_hdr.msg_iov = &m_Parts[i];
            m_Messages[i].msg_hdr.msg_iovlen = 1;
        }
    }
    ~Sender() { close(m_Socket); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    uint64_t SendBatch(bool distinct) {
        if (distinct) {
            for (Frame& frame : m_Frames)
                MakeDistinct(frame, m_Number++);
        }
        const int sent = sendmmsg(m_Socket, m_Messages.data(), kBatch, 0);
        return sent > 0 ? static_cast<uint64_t>(sent) : 0;
    }

private:
    int m_Socket;
    uint32_t m_Number = 0;
    std::array<Frame, kBatch> m_Frames;
    std::array<iovec, kBatch> m_Parts{};
    std::array<mmsghdr, kBatch> m_Messages{};
};

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

int main(int argc, char** argv) {
    std::array<unsigned int, ETH_ALEN> hardware{};
    in_addr destination{};
    if (argc != 7 ||
        std::sscanf(argv[2], "%x:%x:%x:%x:%x:%x", &hardware[0], &hardware[1], &hardware[2],
                    &hardware[3], &hardware[4], &hardware[5]) != ETH_ALEN ||
        inet_aton(argv[3], &destination) == 0) {
        std::fprintf(
            stderr,
            "usage: flood INTERFACE HARDWARE_ADDRESS ADDRESS repeats|distinct SECONDS RATE\n");
        return 2;
    }
    Sender sender(argv[1], FirstFrame(hardware, destination));
    const bool distinct = std::string(argv[4]) == "distinct";
    const double seconds = std::atof(argv[5]), rate = std::atof(argv[6]);
    const Clock::time_point begin = Clock::now();
    uint64_t sent = 0;
    double passed = 0;
    while ((passed = SecondsSince(begin)) < seconds) {
        if (static_cast<double>(sent) < passed * rate)
            sent += sender.SendBatch(distinct);
        else
            std::this_thread::yield();
    }
    std::printf("%llu %.3f\n", static_cast<unsigned long long>(sent), passed);
    return 0;
}
