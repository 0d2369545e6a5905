#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

// Two network namespaces with a wire between them, for a test of its own: the host (192.0.2.10 and
// 2001:db8:2::10 on "wan") and a peer (192.0.2.66, .67 and 2001:db8:2::66 on "eth").
namespace LiveTest {

inline constexpr const char* HOST = "192.0.2.10";
inline constexpr const char* PEER = "192.0.2.66";
inline constexpr const char* HOST6 = "2001:db8:2::10";
inline constexpr const char* PEER6 = "2001:db8:2::66";
inline constexpr const char* HOST_HW = "02:00:00:00:00:0a";
inline constexpr const char* PEER_HW = "02:00:00:00:00:42";

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : m_Descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : m_Descriptor(other.m_Descriptor) {
        other.m_Descriptor = -1;
    }
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_Descriptor, other.m_Descriptor);
        return *this;
    }
    ~Descriptor() {
        if (m_Descriptor >= 0) close(m_Descriptor);
    }
    int Get() const { return m_Descriptor; }

private:
    int m_Descriptor = -1;
};

inline Descriptor CurrentNamespace() {
    return Descriptor(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
}

// Runs a shell command; a failure of it is the test's.
inline void Shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

inline std::string OutputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> buffer;
    size_t length = 0;
    while (pipe && (length = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0)
        output.append(buffer.data(), length);
    return output;
}

inline bool HasCommand(const char* name) {
    return std::system((std::string("command -v ") + name + " >/dev/null").c_str()) == 0;
}

// Sockets belong to the namespace in which they are made, whatever the thread does later.
class Namespaces : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "skipped: needs root";
        for (const char* command : {"ip", "nft"}) {
            if (!HasCommand(command)) GTEST_SKIP() << "skipped: needs the program " << command;
        }
        m_Outside = CurrentNamespace();
        if (unshare(CLONE_NEWNET) != 0)
            GTEST_SKIP() << "skipped: no network namespace: " << std::strerror(errno);
        m_Peer = CurrentNamespace();
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        m_Host = CurrentNamespace();
        Wire();
    }
    void TearDown() override {
        if (m_Outside.Get() < 0) return;
        EXPECT_EQ(setns(m_Outside.Get(), CLONE_NEWNET), 0);
    }

    // What `work` does, and the sockets that it makes, are the peer's.
    template <typename Work>
    auto AtPeer(Work work) {
        EXPECT_EQ(setns(m_Peer.Get(), CLONE_NEWNET), 0);
        struct Return {
            int host;
            ~Return() { EXPECT_EQ(setns(host, CLONE_NEWNET), 0); }
        } back{m_Host.Get()};
        return work();
    }

private:
    void Wire() {
        const std::string peer =
            "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_Peer.Get());
        Shell("ip link add wan address " + std::string(HOST_HW) +
              " type veth peer name eth address " + PEER_HW + " netns " + peer);
        Shell(
            "ip link set lo up && ip addr add 192.0.2.10/24 brd + dev wan && "
            "ip addr add 2001:db8:2::10/64 dev wan nodad && ip link set wan up");
        AtPeer([] {
            Shell(
                "ip link set lo up && ip addr add 192.0.2.66/24 dev eth && "
                "ip addr add 192.0.2.67/24 dev eth && "
                "ip addr add 2001:db8:2::66/64 dev eth nodad && ip link set eth up");
        });
        // Neighbours are known, so nothing waits for them and nothing is lost on the way.
        Shell(std::string("ip neigh replace 192.0.2.66 lladdr ") + PEER_HW + " dev wan && " +
              "ip neigh replace 192.0.2.67 lladdr " + PEER_HW + " dev wan && " +
              "ip neigh replace 2001:db8:2::66 lladdr " + PEER_HW + " dev wan");
        AtPeer([] {
            Shell(std::string("ip neigh replace 192.0.2.10 lladdr ") + HOST_HW + " dev eth && " +
                  "ip neigh replace 2001:db8:2::10 lladdr " + HOST_HW + " dev eth");
        });
    }

    Descriptor m_Outside;
    Descriptor m_Peer;
    Descriptor m_Host;
};

}  // namespace LiveTest
