// Messages as datagrams, over UDP and to a socket in the file system.

#include <sys/un.h>

#include <cstdlib>
#include <cstring>

#include "Receiver.h"
#include "SyslogSender.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLong = kPatience;

std::string Receive(int descriptor) {
    std::string datagram(100000, '\0');
    if (!WaitReadable(descriptor)) return "nothing came";
    const ssize_t got = recv(descriptor, datagram.data(), datagram.size(), 0);
    if (got < 0) return strerror(errno);
    datagram.resize(static_cast<size_t>(got));
    return datagram;
}

class UdpSenderConcurrencyTest : public ::testing::Test {
protected:
    SyslogTarget Target() const {
        return TargetOf("udp://127.0.0.1:" + std::to_string(m_Port.Number()));
    }
    Port m_Port{SOCK_DGRAM};
};

TEST_F(UdpSenderConcurrencyTest, OneMessageIsOneDatagram) {
    SyslogSender sender(Target(), 100);
    sender.Post("one");
    sender.Post("two, \xC3\xA4");
    EXPECT_EQ(Receive(m_Port.Get()), "one");
    EXPECT_EQ(Receive(m_Port.Get()), "two, \xC3\xA4");
    sender.Close(kLong);
    EXPECT_EQ(sender.Statistics().sent, 2u);
}

TEST_F(UdpSenderConcurrencyTest, LongMessageIsCutBetweenCharacters) {
    SyslogSender sender(Target(), 100);
    const std::string text(65505, 'x');
    sender.Post(text + "\xE2\x82\xAC");
    EXPECT_EQ(Receive(m_Port.Get()), text);
    sender.Post(text + "yz and more");
    EXPECT_EQ(Receive(m_Port.Get()), text + "yz");
}

TEST_F(UdpSenderConcurrencyTest, ReceiverThatComesBackGetsMessagesAgain) {
    SyslogSender sender(Target(), 100);
    m_Port.Close();
    sender.Post("lost, since nobody tells that it was not taken");
    ASSERT_TRUE(WaitFor([&sender] { return sender.Statistics().sent == 1; }));
    m_Port.Reopen(SOCK_DGRAM);
    sender.Post("two");
    EXPECT_EQ(Receive(m_Port.Get()), "two");
}

TEST_F(UdpSenderConcurrencyTest, CloseSendsWhatIsQueued) {
    SyslogSender sender(Target(), 100);
    for (int i = 0; i < 50; ++i)
        sender.Post(std::to_string(i));
    sender.Close(kLong);
    EXPECT_EQ(sender.Statistics().sent, 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(Receive(m_Port.Get()), std::to_string(i));
}

class UnixSenderConcurrencyTest : public ::testing::Test {
protected:
    UnixSenderConcurrencyTest() {
        char directory[] = "/tmp/velm_sender.XXXXXX";
        if (mkdtemp(directory) == nullptr) abort();
        m_Directory = directory;
        m_Path = m_Directory + "/log";
    }
    ~UnixSenderConcurrencyTest() override {
        unlink(m_Path.c_str());
        rmdir(m_Directory.c_str());
    }

    void Listen() {
        m_Socket = Socket(socket(AF_UNIX, SOCK_DGRAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, m_Path.c_str(), m_Path.size() + 1);
        ASSERT_EQ(bind(m_Socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    void StopListening() {
        m_Socket.Close();
        unlink(m_Path.c_str());
    }

    std::string m_Directory;
    std::string m_Path;
    Socket m_Socket;
};

TEST_F(UnixSenderConcurrencyTest, OneMessageIsOneDatagram) {
    Listen();
    SyslogSender sender(TargetOf("unix:" + m_Path), 100);
    sender.Post("one");
    sender.Post("two");
    EXPECT_EQ(Receive(m_Socket.Get()), "one");
    EXPECT_EQ(Receive(m_Socket.Get()), "two");
}

// A full socket makes the sender wait, and its queue take what comes.
TEST_F(UnixSenderConcurrencyTest, SlowReaderGetsEverything) {
    Listen();
    SyslogSender sender(TargetOf("unix:" + m_Path), 1000);
    for (int i = 0; i < 500; ++i)
        EXPECT_TRUE(sender.Post(std::to_string(i)));
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(Receive(m_Socket.Get()), std::to_string(i));
}

TEST_F(UnixSenderConcurrencyTest, MessagesWaitForASocketThatIsMadeLateOrAnew) {
    SyslogSender sender(TargetOf("unix:" + m_Path), 100);
    sender.Post("one");
    std::this_thread::sleep_for(milliseconds(50));
    Listen();
    EXPECT_EQ(Receive(m_Socket.Get()), "one");
    StopListening();
    sender.Post("two");
    Listen();
    EXPECT_EQ(Receive(m_Socket.Get()), "two");
    sender.Close(kLong);
    EXPECT_EQ(sender.Statistics().sent, 2u);
    EXPECT_EQ(sender.Statistics().reconnects, 1u);
}

TEST_F(UnixSenderConcurrencyTest, CloseWithoutAReaderCountsWhatIsLeft) {
    SyslogSender sender(TargetOf("unix:" + m_Path), 100);
    sender.Post("one");
    sender.Close(milliseconds(50));
    EXPECT_EQ(sender.Statistics().dropped, 1u);
}

}  // namespace
