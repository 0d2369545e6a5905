#include <poll.h>

#include "Live.h"

// Ends of tracked connections.
namespace LiveTest {

using KdiTest::Line;

// A TCP connection between the two, made by their kernels.
struct Connection {
    Descriptor client;
    Descriptor server;
    uint16_t clientPort = 0;
};

class LiveConnectionTest : public Live {
protected:
    void SetUp() override {
        if (!HasCommand("conntrack")) GTEST_SKIP() << "skipped: needs the program conntrack";
        Live::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        SetKernel("netfilter/nf_conntrack_timestamp", "1");
        LoadRuleset();
    }

    static sockaddr_in Address(const char* address, uint16_t port) {
        sockaddr_in end{};
        end.sin_family = AF_INET;
        end.sin_port = htons(port);
        end.sin_addr.s_addr = inet_addr(address);
        return end;
    }
    static Descriptor Listen(const char* address, uint16_t port) {
        Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        const sockaddr_in at = Address(address, port);
        EXPECT_EQ(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
        EXPECT_EQ(listen(listener.Get(), 8), 0);
        return listener;
    }
    static Descriptor Connect(const char* address, uint16_t port) {
        Descriptor client(socket(AF_INET, SOCK_STREAM, 0));
        const sockaddr_in to = Address(address, port);
        EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0)
            << std::strerror(errno);
        return client;
    }
    static Connection Complete(const Descriptor& listener, Descriptor client) {
        Connection connection;
        sockaddr_in own{};
        socklen_t size = sizeof own;
        getsockname(client.Get(), reinterpret_cast<sockaddr*>(&own), &size);
        connection.clientPort = ntohs(own.sin_port);
        connection.client = std::move(client);
        Eventually([&] {
            connection.server = Descriptor(accept(listener.Get(), nullptr, nullptr));
            return connection.server.Get() >= 0;
        });
        return connection;
    }
    Connection Inbound() {
        const Descriptor listener = Listen(HOST, 22);
        return Complete(listener, AtPeer([] { return Connect(HOST, 22); }));
    }
    Connection Outbound() {
        const Descriptor listener = AtPeer([] { return Listen(PEER, 80); });
        return Complete(listener, Connect(PEER, 80));
    }
    // Closed by the client, then by the server once it knows; the kernels have exchanged all.
    static void CloseBoth(Connection& connection) {
        connection.client = Descriptor();
        char byte = 0;
        EXPECT_EQ(read(connection.server.Get(), &byte, 1), 0);
        connection.server = Descriptor();
    }
    static void Reset(Descriptor& end) {
        const linger now{1, 0};
        setsockopt(end.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        end = Descriptor();
    }
    // The kernel forgets all connections now and not when their time is over; the state of each is
    // the one that is waited for.
    static void Forget(const std::string& state) {
        EXPECT_TRUE(Eventually([&] {
            return OutputOf("conntrack -L 2>/dev/null").find(state) != std::string::npos;
        })) << OutputOf("conntrack -L 2>&1");
        Shell("conntrack -F 2>/dev/null");
    }
};

TEST_F(LiveConnectionTest, InboundConnectionThatBothClosedEndsNormally) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Connection connection = Inbound();
    CloseBoth(connection);
    Forget("TIME_WAIT");
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Line(entries[0]), "10000 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 " +
                                    std::to_string(connection.clientPort) + " 22");
    EXPECT_EQ(handle.Statistics().connection_ends, 1u);
}

TEST_F(LiveConnectionTest, OutboundConnectionIsOutgoing) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Connection connection = Outbound();
    CloseBoth(connection);
    Forget("TIME_WAIT");
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Line(entries[0]), "10000 0 0 out fwd p6 192.0.2.10 > 192.0.2.66 " +
                                    std::to_string(connection.clientPort) + " 80");
}

TEST_F(LiveConnectionTest, ResetConnectionEndsOtherwise) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Connection connection = Inbound();
    Reset(connection.client);
    Forget("CLOSE");
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Line(entries[0]), "10001 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 " +
                                    std::to_string(connection.clientPort) + " 22");
}

TEST_F(LiveConnectionTest, ConnectionThatIsStillOpenEndsOtherwise) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    const Connection connection = Inbound();
    Forget("ESTABLISHED");
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].log_reason, LOG_REASON_CONNTRACK_CLOSED);
}

TEST_F(LiveConnectionTest, UnansweredSynEndsOtherwiseWhenItsTimeIsOver) {
    SetKernel("netfilter/nf_conntrack_tcp_timeout_syn_sent", "1");
    Shell(
        "nft 'table inet quiet { chain c { type filter hook output priority 0; "
        "tcp flags & rst == rst drop; }; }'");
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Send(Tcp(40000, 22, SYN));
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(Line(entries[0]), "10001 0 0 in fwd p6 192.0.2.66 > 192.0.2.10 40000 22");
    const int64_t first = int64_t{entries[0].log_first_sec} * 1000000 + entries[0].log_first_usec;
    const int64_t last = int64_t{entries[0].log_last_sec} * 1000000 + entries[0].log_last_usec;
    EXPECT_GE(last - first, 900'000);  // the kernel counts in jiffies
}

TEST_F(LiveConnectionTest, EventsThatAreTurnedOffAreTold) {
    SetKernel("netfilter/nf_conntrack_events", "0");
    const LiveHandle handle;
    EXPECT_EQ(handle.Message(), "ends of connections are not told: nf_conntrack_events is 0");
}

TEST_F(LiveConnectionTest, ConnectionWithinTheHostIsLeftOut) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    const Descriptor listener = Listen(HOST, 8080);
    Connection within = Complete(listener, Connect(HOST, 8080));
    Connection connection = Inbound();
    Forget("ESTABLISHED");
    const Entries entries = handle.Take(1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].log_transport.tcp.tcph_dport, htons(22));
    EXPECT_TRUE(handle.TakeAll().empty());
}

// The flow statistic reads these fields, so they must be those of the same traffic in a capture.
TEST_F(LiveConnectionTest, EndIsTheOneThatACaptureOfTheConnectionGives) {
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Connection connection = Inbound();
    Reset(connection.client);
    Forget("CLOSE");
    const Entries live = handle.Take(1);
    ASSERT_EQ(live.size(), 1u);

    const unsigned int port = connection.clientPort;
    KdiTest::CaptureBuilder capture;
    const auto in = [&](uint8_t flags) {
        capture.Add(0, KdiTest::Ethernet(KdiTest::HOST_HW, KdiTest::PEER_HW,
                                         KdiTest::Ipv4(PEER, HOST, Tcp(port, 22, flags))));
    };
    in(SYN);
    capture.Add(0, KdiTest::Ethernet(KdiTest::PEER_HW, KdiTest::HOST_HW,
                                     KdiTest::Ipv4(HOST, PEER, Tcp(22, port, SYN | ACK))));
    in(ACK);
    in(RST | ACK);
    KdiTest::Handle replay("pcap:" + capture.Write(), "192.0.2.10/32");
    const Entries captured = replay.All();
    ASSERT_EQ(captured.size(), 1u);
    EXPECT_EQ(Line(live[0]), Line(captured[0]));
    EXPECT_EQ(live[0].log_flags, captured[0].log_flags & ~LOG_FLAG_ETH);
    EXPECT_EQ(live[0].log_flags2, captured[0].log_flags2);
    EXPECT_EQ(live[0].log_repeat_count, captured[0].log_repeat_count);
}

}  // namespace LiveTest
