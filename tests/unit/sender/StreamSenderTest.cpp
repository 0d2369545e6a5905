// Messages over TCP, from the sender's thread to a receiver that comes and goes.

#include <atomic>
#include <map>
#include <memory>

#include "MountNamespace.h"
#include "Receiver.h"
#include "SyslogSender.h"
#include "TempDirectory.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t kLimit = 100000;
constexpr milliseconds kLong = kPatience;

class StreamSenderConcurrencyTest : public ::testing::Test {
protected:
    StreamSenderConcurrencyTest() { Listen(); }

    void Listen() { ASSERT_EQ(listen(m_Port.Get(), 5), 0); }
    void StopListening() { m_Port.Close(); }
    void ListenAgain() {
        m_Port.Reopen(SOCK_STREAM);
        Listen();
    }
    std::string Target() const { return "tcp://127.0.0.1:" + std::to_string(m_Port.Number()); }
    std::unique_ptr<SyslogSender> Sender(size_t limit = kLimit) {
        return std::make_unique<SyslogSender>(TargetOf(Target()), limit);
    }
    FrameReader Accept() {
        const bool isCalled = WaitReadable(m_Port.Get());
        EXPECT_TRUE(isCalled);
        if (!isCalled) return FrameReader(Socket());
        return FrameReader(Socket(accept(m_Port.Get(), nullptr, nullptr)));
    }
    // Goes away as a process does that has not read everything.
    static void Reset(FrameReader& reader) {
        const linger atOnce = {1, 0};
        setsockopt(reader.Connection().Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
        reader.Connection().Close();
    }

    Port m_Port{SOCK_STREAM};
};

std::string Message(int i) {
    return "message " + std::to_string(i);
}

void Post(SyslogSender& sender, int begin, int end) {
    for (int i = begin; i < end; ++i)
        EXPECT_TRUE(sender.Post(Message(i)));
}

// Which messages are there, how often.
std::map<std::string, int> Counted(const std::vector<std::string>& messages) {
    std::map<std::string, int> counts;
    for (const std::string& message : messages)
        ++counts[message];
    return counts;
}

TEST_F(StreamSenderConcurrencyTest, MessagesComeInOrderBehindTheirLength) {
    const auto sender = Sender();
    sender->Post("one");
    sender->Post("");
    sender->Post("three, with\nline end and \xC3\xA4");
    FrameReader reader = Accept();
    EXPECT_EQ(reader.Read(3),
              (std::vector<std::string>{"one", "", "three, with\nline end and \xC3\xA4"}));
}

TEST_F(StreamSenderConcurrencyTest, CloseSendsWhatIsQueuedAndEndsTheStream) {
    const auto sender = Sender();
    Post(*sender, 0, 5000);
    std::thread closing([&sender] { sender->Close(kLong); });
    FrameReader reader = Accept();
    EXPECT_EQ(reader.ReadAll().size(), 5000u);
    reader.Connection().Close();
    closing.join();
    const SyslogStatistics counts = sender->Statistics();
    EXPECT_EQ(counts.sent, 5000u);
    EXPECT_EQ(counts.dropped, 0u);
    EXPECT_EQ(counts.queued, 0u);
    EXPECT_EQ(counts.reconnects, 0u);
}

TEST_F(StreamSenderConcurrencyTest, CloseWithoutMessagesConnectsToNobody) {
    const auto sender = Sender();
    sender->Close(kLong);
    EXPECT_FALSE(WaitReadable(m_Port.Get(), milliseconds(0)));
}

TEST_F(StreamSenderConcurrencyTest, CloseIsBoundedAndCountsWhatIsLeft) {
    StopListening();
    const auto sender = Sender();
    Post(*sender, 0, 7);
    const auto begin = steady_clock::now();
    sender->Close(milliseconds(200));
    EXPECT_LT(steady_clock::now() - begin, kLong);
    EXPECT_EQ(sender->Statistics().dropped, 7u);
    EXPECT_EQ(sender->Statistics().sent, 0u);
    EXPECT_EQ(sender->Statistics().queued, 0u);
    EXPECT_FALSE(sender->Post("too late"));
    EXPECT_EQ(sender->Statistics().dropped, 8u);
}

TEST_F(StreamSenderConcurrencyTest, ReceiverThatNeverClosesDoesNotHoldUpTheEndForLong) {
    const auto sender = Sender();
    Post(*sender, 0, 1);
    FrameReader reader = Accept();
    EXPECT_EQ(reader.Read(1).size(), 1u);
    sender->Close(kLong);
    EXPECT_EQ(sender->Statistics().sent, 1u);
    EXPECT_EQ(sender->Statistics().dropped, 0u);
}

TEST_F(StreamSenderConcurrencyTest, QueueIsBoundedAndCountsWhatItDropped) {
    StopListening();
    const auto sender = Sender(10);
    int accepted = 0;
    for (int i = 0; i < 50; ++i)
        accepted += sender->Post(Message(i)) ? 1 : 0;
    // One more when the thread has taken one off.
    EXPECT_TRUE(accepted == 10 || accepted == 11) << accepted;
    const SyslogStatistics counts = sender->Statistics();
    EXPECT_EQ(counts.queued, static_cast<uint64_t>(accepted));
    EXPECT_EQ(counts.dropped, static_cast<uint64_t>(50 - accepted));
}

TEST_F(StreamSenderConcurrencyTest, MessagesWaitForAReceiverThatComesLate) {
    StopListening();
    const auto sender = Sender();
    Post(*sender, 0, 100);
    std::this_thread::sleep_for(milliseconds(150));
    ListenAgain();
    FrameReader reader = Accept();
    const std::vector<std::string> messages = reader.Read(100);
    ASSERT_EQ(messages.size(), 100u);
    EXPECT_EQ(messages.front(), Message(0));
    EXPECT_EQ(messages.back(), Message(99));
}

TEST_F(StreamSenderConcurrencyTest, ReceiverThatClosesInOrderMissesNothing) {
    const auto sender = Sender();
    Post(*sender, 0, 1000);
    FrameReader first = Accept();
    std::vector<std::string> messages = first.Read(1000);
    // It is written into a connection that nobody reads any more.
    shutdown(first.Connection().Get(), SHUT_RDWR);
    first.Connection().Close();
    Post(*sender, 1000, 2000);
    FrameReader second = Accept();
    std::thread closing([&sender] { sender->Close(kLong); });
    for (std::string& message : second.ReadAll())
        messages.push_back(message);
    second.Connection().Close();
    closing.join();
    EXPECT_EQ(Counted(messages).size(), 2000u);
    EXPECT_EQ(sender->Statistics().sent, 2000u);
    EXPECT_EQ(sender->Statistics().reconnects, 1u);
}

// What the receiver's system has acknowledged is lost with the process that had not read it.
TEST_F(StreamSenderConcurrencyTest, ReceiverThatDiesWithUnreadMessagesMissesNothing) {
    const auto sender = Sender();
    Post(*sender, 0, 3000);
    FrameReader first = Accept();
    std::vector<std::string> messages = first.Read(10);
    ASSERT_TRUE(WaitFor([&sender] { return sender->Statistics().sent == 3000; }));
    Reset(first);
    FrameReader second = Accept();
    Post(*sender, 3000, 3100);
    std::thread closing([&sender] { sender->Close(kLong); });
    for (std::string& message : second.ReadAll())
        messages.push_back(message);
    second.Connection().Close();
    closing.join();
    EXPECT_EQ(Counted(messages).size(), 3100u);
    // Each counts once, however often it was written.
    EXPECT_EQ(sender->Statistics().sent, 3100u);
}

TEST_F(StreamSenderConcurrencyTest, ReceiverThatReadNothingYetMayDieAtTheEnd) {
    const auto sender = Sender();
    Post(*sender, 0, 500);
    FrameReader first = Accept();
    std::thread closing([&sender] { sender->Close(kLong); });
    ASSERT_TRUE(WaitFor([&sender] { return sender->Statistics().sent == 500; }));
    Reset(first);
    FrameReader second = Accept();
    EXPECT_EQ(Counted(second.ReadAll()).size(), 500u);
    second.Connection().Close();
    closing.join();
}

TEST_F(StreamSenderConcurrencyTest, ReceiverThatComesAndGoesGetsEverything) {
    constexpr int kMessages = 20000;
    const auto sender = Sender();
    std::thread writing([&sender] {
        for (int i = 0; i < kMessages; ++i)
            EXPECT_TRUE(sender->PostWaiting(Message(i), [] { return false; }));
        sender->Close(kLong);
    });
    std::vector<std::string> messages;
    for (int life = 0; life < 6; ++life) {
        FrameReader reader = Accept();
        const std::vector<std::string> read =
            life < 5 ? reader.Read(static_cast<size_t>(1000 + 37 * life)) : reader.ReadAll();
        messages.insert(messages.end(), read.begin(), read.end());
        if (life % 2 == 0) Reset(reader);
    }
    writing.join();
    EXPECT_EQ(Counted(messages).size(), static_cast<size_t>(kMessages));
    EXPECT_EQ(sender->Statistics().dropped, 0u);
}

TEST_F(StreamSenderConcurrencyTest, ReceiverThatDoesNotReadHoldsUpNoWriter) {
    const auto sender = Sender(100);
    sender->Post("first");
    FrameReader reader = Accept();
    const std::string big(10000, 'x');
    const auto begin = steady_clock::now();
    uint64_t refused = 0;
    for (int i = 0; i < 20000; ++i)
        refused += sender->Post(big) ? 0 : 1;
    EXPECT_LT(steady_clock::now() - begin, kLong);
    EXPECT_GT(refused, 0u);
    EXPECT_EQ(sender->Statistics().dropped, refused);
}

TEST_F(StreamSenderConcurrencyTest, ReceiverThatSendsWithoutEndGetsItsMessages) {
    const auto sender = Sender();
    Post(*sender, 0, 1);
    FrameReader reader = Accept();
    std::vector<std::thread> flood;
    for (int i = 0; i < 2; ++i) {
        flood.emplace_back([descriptor = reader.Connection().Get()] {
            const std::string noise(1 << 20, 'x');
            while (send(descriptor, noise.data(), noise.size(), MSG_NOSIGNAL) > 0) {
            }
        });
    }
    const auto begin = steady_clock::now();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(reader.Read(1), std::vector<std::string>{Message(i)});
        Post(*sender, i + 1, i + 2);
    }
    EXPECT_LT(steady_clock::now() - begin, kLong);
    EXPECT_EQ(reader.Read(1), std::vector<std::string>{Message(50)});
    std::thread closing([&sender] { sender->Close(kLong); });
    EXPECT_EQ(reader.ReadAll(), std::vector<std::string>());
    shutdown(reader.Connection().Get(), SHUT_RDWR);
    for (std::thread& thread : flood)
        thread.join();
    reader.Connection().Close();
    closing.join();
    EXPECT_EQ(sender->Statistics().dropped, 0u);
}

TEST_F(StreamSenderConcurrencyTest, WaitingWriterLosesNothingWhileTheReceiverIsSlow) {
    const auto sender = Sender(5);
    std::thread writing([&sender] {
        for (int i = 0; i < 2000; ++i)
            EXPECT_TRUE(sender->PostWaiting(Message(i), [] { return false; }));
        sender->Close(kLong);
    });
    FrameReader reader = Accept();
    EXPECT_EQ(reader.ReadAll().size(), 2000u);
    reader.Connection().Close();
    writing.join();
    EXPECT_EQ(sender->Statistics().dropped, 0u);
}

TEST_F(StreamSenderConcurrencyTest, WaitingWriterStopsWhenToldTo) {
    StopListening();
    const auto sender = Sender(1);
    std::atomic<bool> stop{false};
    std::thread writing([&] {
        while (sender->PostWaiting("x", [&stop] { return stop.load(); })) {
        }
    });
    ASSERT_TRUE(WaitFor([&sender] { return sender->Statistics().queued >= 1; }));
    stop = true;
    writing.join();
    EXPECT_EQ(sender->Statistics().dropped, 1u);
}

TEST_F(StreamSenderConcurrencyTest, NameIsLookedUp) {
    const auto sender = std::make_unique<SyslogSender>(
        TargetOf("tcp://localhost:" + std::to_string(m_Port.Number())), kLimit);
    sender->Post("one");
    FrameReader reader = Accept();
    EXPECT_EQ(reader.Read(1), std::vector<std::string>{"one"});
}

// Nobody answers there: the queue of connections is full, and whatever comes is ignored.
class SilentPort {
public:
    SilentPort() {
        EXPECT_EQ(listen(m_Port.Get(), 0), 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(m_Port.Number()));
        for (Socket& caller : m_Callers) {
            caller = Socket(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            connect(caller.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        }
    }
    int Number() const { return m_Port.Number(); }

private:
    Port m_Port{SOCK_STREAM};
    Socket m_Callers[4];
};

// The first address of a name takes all the time that it gets, and the second is reached then.
TEST(StreamSenderNameConcurrencyTest, AddressBehindASilentOneIsReached) {
    MountNamespace mounts;
    if (!mounts.IsUsable()) GTEST_SKIP() << mounts.WhyNot();
    const TempDirectory directory;
    directory.Plant("hosts", "127.0.0.1 twofold\n127.0.0.2 twofold\n");
    ASSERT_TRUE(mounts.Bind(directory.Path("hosts"), "/etc/hosts"));
    const SilentPort silent;
    const Socket port(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    address.sin_port = htons(static_cast<uint16_t>(silent.Number()));
    ASSERT_EQ(bind(port.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(port.Get(), 5), 0);

    SyslogSender sender(TargetOf("tcp://twofold:" + std::to_string(silent.Number())), kLimit);
    sender.Post("one");
    ASSERT_TRUE(WaitReadable(port.Get()));
    FrameReader reader(Socket(accept(port.Get(), nullptr, nullptr)));
    EXPECT_EQ(reader.Read(1), std::vector<std::string>{"one"});
}

TEST(StreamSenderIpv6ConcurrencyTest, AddressInBracketsIsReached) {
    Port port(SOCK_STREAM, AF_INET6);
    if (port.Number() == 0) GTEST_SKIP() << "skipped: this host has no IPv6";
    ASSERT_EQ(listen(port.Get(), 5), 0);
    SyslogSender sender(TargetOf("tcp://[::1]:" + std::to_string(port.Number())), kLimit);
    sender.Post("one");
    ASSERT_TRUE(WaitReadable(port.Get()));
    FrameReader reader(Socket(accept(port.Get(), nullptr, nullptr)));
    EXPECT_EQ(reader.Read(1), std::vector<std::string>{"one"});
}

}  // namespace
