#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "Replay.h"
#include "kdi/testing.h"

using namespace KdiTest;

namespace {

class HandleTest : public HostTest {
protected:
    static kdi_blacklist_s Record(const std::string& address, uint32_t msec) {
        kdi_blacklist_s record = {};
        record.bl_addr_kind = 4;
        record.bl_duration_msec = msec;
        std::memcpy(&record.bl_ipv4_addr, Ip(address).data(), 4);
        return record;
    }
    static std::string OpenError(const std::string& source, const char* local = nullptr,
                                 const char* allow = nullptr) {
        const Handle handle(source, local, allow);
        EXPECT_EQ(handle.Get(), nullptr);
        return handle.OpenError();
    }
};

}  // namespace

TEST_F(HandleTest, UnknownSourceIsNamed) {
    EXPECT_EQ(OpenError("pcapng:x"),
              "cannot open source \"pcapng:x\": it is none of null, pcap:FILE, nflog:GROUP");
}

TEST_F(HandleTest, LogGroupThatIsNoNumberOf16BitsIsNamed) {
    for (const std::string group : {"", "x", "5x", "-1", " 5", "65536"}) {
        EXPECT_EQ(OpenError("nflog:" + group), "cannot open source nflog:" + group + ": \"" +
                                                   group + "\" is no group (0 to 65535)");
    }
}

TEST_F(HandleTest, BadAllowListOfTheLiveSourceNamesItsToken) {
    EXPECT_EQ(Handle("nflog:5", nullptr, "192.0.2.0/24,192.0.2.0/33").OpenError(),
              "cannot open source nflog:5: allowed address \"192.0.2.0/33\" is no address and no "
              "CIDR network");
}

TEST_F(HandleTest, ErrorTextIsCutToTheBuffer) {
    char text[8];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(kdi_open_source("nonsense", nullptr, text, sizeof text), nullptr);
    EXPECT_STREQ(text, "cannot ");
    EXPECT_EQ(kdi_open_source("nonsense", nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(kdi_open_source(nullptr, nullptr, text, sizeof text), nullptr);
    EXPECT_STREQ(text, "no sour");
}

TEST_F(HandleTest, MissingFileIsNamedWithTheReason) {
    EXPECT_EQ(OpenError("pcap:/nonexistent/x.pcap"),
              "cannot read capture /nonexistent/x.pcap: No such file or directory");
}

TEST_F(HandleTest, EmptyFileIsNamedWithTheReason) {
    m_Capture.Write(Bytes{});
    EXPECT_EQ(OpenError("pcap:" + m_Capture.Path()),
              "cannot read capture " + m_Capture.Path() + ": it is empty");
}

TEST_F(HandleTest, DirectoryAndPipeAreNoRegularFiles) {
    EXPECT_EQ(OpenError("pcap:/tmp"), "cannot read capture /tmp: it is no regular file");
    const std::string pipe = m_Capture.Path() + ".pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(OpenError("pcap:" + pipe), "cannot read capture " + pipe + ": it is no regular file");
    std::remove(pipe.c_str());
}

TEST_F(HandleTest, FileThatIsNoCaptureIsNamed) {
    const std::string text = "this is only text, no capture at all";
    m_Capture.Write(Bytes(text.begin(), text.end()));
    const std::string error = OpenError("pcap:" + m_Capture.Path());
    EXPECT_EQ(error.find("cannot read capture " + m_Capture.Path() + ": "), 0u) << error;
    EXPECT_NE(error.find("unknown file format"), std::string::npos) << error;
}

TEST_F(HandleTest, FileCutInItsHeaderIsNamed) {
    m_Capture.Write(Bytes{0xD4, 0xC3, 0xB2, 0xA1, 2, 0});
    const std::string error = OpenError("pcap:" + m_Capture.Path());
    EXPECT_EQ(error.find("cannot read capture " + m_Capture.Path() + ": truncated"), 0u) << error;
}

TEST_F(HandleTest, OtherLinkTypeIsNamed) {
    m_Capture.SetLink(127);
    EXPECT_EQ(
        OpenError("pcap:" + m_Capture.Write()),
        "cannot read capture " + m_Capture.Path() +
            ": link type IEEE802_11_RADIO is not supported (Ethernet, Linux cooked and raw IP "
            "are)");
}

TEST_F(HandleTest, FileCutWithinAPacketGivesWhatIsSoundAndThenFails) {
    In(Tcp(4000, 23, SYN));
    In(Tcp(4001, 23, SYN));
    Bytes content = m_Capture.Content();
    content.resize(content.size() - 10);
    Handle handle("pcap:" + m_Capture.Write(content));
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    EXPECT_EQ(ToLines(handle.All()), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4000 23"});
    EXPECT_EQ(handle.Last(), KDI_FAILED);
    const std::string error = handle.Error();
    EXPECT_EQ(error.find("cannot read capture " + m_Capture.Path() + ": truncated"), 0u) << error;
    EXPECT_NE(error.find("(behind packet 1)"), std::string::npos) << error;
    velm_log_entry_s entry;
    EXPECT_EQ(handle.Next(entry), KDI_FAILED);
}

TEST_F(HandleTest, EndStaysTheEnd) {
    In(Tcp(4000, 23, SYN));
    Handle handle("pcap:" + m_Capture.Write());
    EXPECT_EQ(handle.All().size(), 1u);
    velm_log_entry_s entry;
    EXPECT_EQ(handle.Next(entry), KDI_END);
    EXPECT_EQ(handle.Error(), "");
}

TEST_F(HandleTest, BadLocalListNamesItsToken) {
    m_Capture.Write();
    for (const std::string bad : {"192.0.2.300", "192.0.2.0/33", "2001:db8::/129", "192.0.2.0/",
                                  "192.0.2.0/x", "host", "", "2001:db8::1%eth0"}) {
        EXPECT_EQ(OpenError("pcap:" + m_Capture.Path(), ("10.0.0.0/8," + bad).c_str()),
                  "local address \"" + bad + "\" is no address and no CIDR network");
    }
}

TEST_F(HandleTest, BadAllowListNamesItsToken) {
    m_Capture.Write();
    for (const std::string bad : {"tcp", "tcp/", "tcp/65536", "tcp/-1", "sctp/80", "80", "",
                                  "TCP/80", "tcp/80 ", "icmp/8"}) {
        EXPECT_EQ(OpenError("pcap:" + m_Capture.Path(), nullptr, ("udp/53," + bad).c_str()),
                  "allowed service \"" + bad + "\" is not like tcp/80, udp/53 or icmp");
    }
}

TEST_F(HandleTest, StatisticsFollowTheReading) {
    In(Tcp(4000, 23, SYN));
    At(2);
    Out(Tcp(23, 4000, RST));
    Handle handle("pcap:" + m_Capture.Write());
    EXPECT_EQ(handle.Statistics().packets, 0u);
    EXPECT_EQ(handle.Statistics().total_packets, 2u);
    EXPECT_EQ(handle.Statistics().first_usec, -1);
    EXPECT_EQ(handle.Statistics().last_usec, -1);
    velm_log_entry_s entry;
    ASSERT_EQ(handle.Next(entry), KDI_ENTRY);
    EXPECT_EQ(handle.Statistics().packets, 1u);
    EXPECT_EQ(handle.Statistics().entries, 1u);
    EXPECT_EQ(handle.Statistics().last_usec, START);
    ASSERT_EQ(handle.Next(entry), KDI_END);
    EXPECT_EQ(handle.Statistics().packets, 2u);
    EXPECT_EQ(handle.Statistics().first_usec, START);
    EXPECT_EQ(handle.Statistics().last_usec, START + 2000000);
}

TEST_F(HandleTest, NullSourceWaitsAndNeverHasAnEntry) {
    Handle handle("null");
    ASSERT_NE(handle.Get(), nullptr);
    const auto start = std::chrono::steady_clock::now();
    kdi_entry_s* entry = nullptr;
    EXPECT_EQ(kdi_next_entry(handle.Get(), 30, &entry), KDI_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(29));
    EXPECT_EQ(handle.Describe(), "");
    EXPECT_EQ(handle.Statistics().packets, 0u);
}

TEST_F(HandleTest, BlacklistRecordsAreKeptUntilTaken) {
    Handle handle("null");
    const kdi_blacklist_s first = Record("192.0.2.66", 600000);
    const kdi_blacklist_s second = Record("192.0.2.67", 1000);
    EXPECT_EQ(kdi_add_blacklist(handle.Get(), &first), 0);
    EXPECT_EQ(kdi_add_blacklist(handle.Get(), &second), 0);
    kdi_blacklist_s taken[2] = {};
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), taken, 1), 1u);
    const uint8_t bytes[12] = {0, 4, 0, 0, 0xC0, 0x27, 0x09, 0x00, 192, 0, 2, 66};
    EXPECT_EQ(std::memcmp(taken, bytes, 12), 0);
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), taken, 2), 1u);
    EXPECT_EQ(std::memcmp(taken, &second, 12), 0);
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), taken, 2), 0u);
}

TEST_F(HandleTest, OfTooManyBlacklistRecordsTheOldestAreDropped) {
    Handle handle("null");
    for (uint32_t i = 0; i < 100001; ++i) {
        const kdi_blacklist_s record = Record("192.0.2.66", i);
        ASSERT_EQ(kdi_add_blacklist(handle.Get(), &record), 0);
    }
    std::vector<kdi_blacklist_s> taken(100002);
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), taken.data(), 100002), 100000u);
    EXPECT_EQ(taken[0].bl_duration_msec, 1u);
    EXPECT_EQ(taken[99999].bl_duration_msec, 100000u);
}

TEST_F(HandleTest, RecordThatIsNotIpv4IsRefused) {
    Handle handle("null");
    kdi_blacklist_s record = Record("192.0.2.66", 1000);
    record.bl_addr_kind = 6;
    EXPECT_EQ(kdi_add_blacklist(handle.Get(), &record), EINVAL);
    EXPECT_EQ(kdi_add_blacklist(handle.Get(), nullptr), EINVAL);
    EXPECT_EQ(kdi_add_blacklist(nullptr, &record), EINVAL);
    kdi_blacklist_s taken;
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), &taken, 1), 0u);
}

TEST_F(HandleTest, FaultAskedForComesOnceAndKeepsNothing) {
    Handle handle("null");
    const kdi_blacklist_s record = Record("192.0.2.66", 1000);
    kdi_testing_fail_blacklist(EPERM);
    EXPECT_EQ(kdi_add_blacklist(handle.Get(), &record), EPERM);
    kdi_blacklist_s taken;
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), &taken, 1), 0u);
    EXPECT_EQ(kdi_add_blacklist(handle.Get(), &record), 0);
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), &taken, 1), 1u);
}

TEST_F(HandleTest, PacketsOfABlockedSourceAreDroppedUntilItsTimeIsOver) {
    At(0);
    In(Tcp(4000, 23, SYN));
    m_Now = START + 9999999;
    In(Tcp(4001, 23, SYN));
    m_Now = START + 10000000;
    In(Tcp(4002, 23, SYN));
    Handle handle("pcap:" + m_Capture.Write());
    velm_log_entry_s entry;
    ASSERT_EQ(handle.Next(entry), KDI_ENTRY);
    const kdi_blacklist_s record = Record("192.0.2.66", 10000);
    ASSERT_EQ(kdi_add_blacklist(handle.Get(), &record), 0);
    EXPECT_EQ(ToLines(handle.All()), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4002 23"});
    EXPECT_EQ(handle.Statistics().dropped, 1u);
    EXPECT_EQ(handle.Statistics().packets, 3u);
}

TEST_F(HandleTest, SecondBlockExtendsAndNeverShortens) {
    for (const int second : {0, 1, 5, 11, 20}) {
        At(second);
        In(Tcp(static_cast<unsigned int>(4000 + second), 23, SYN));
    }
    Handle handle("pcap:" + m_Capture.Write());
    velm_log_entry_s entry;
    ASSERT_EQ(handle.Next(entry), KDI_ENTRY);
    const kdi_blacklist_s longer = Record("192.0.2.66", 15000);
    const kdi_blacklist_s shorter = Record("192.0.2.66", 3000);
    ASSERT_EQ(kdi_add_blacklist(handle.Get(), &longer), 0);
    ASSERT_EQ(kdi_add_blacklist(handle.Get(), &shorter), 0);
    EXPECT_EQ(ToLines(handle.All()), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4020 23"});
    EXPECT_EQ(handle.Statistics().dropped, 3u);
}

TEST_F(HandleTest, BlockBeforeTheFirstEntryBeginsWithTheFirstPacket) {
    At(0);
    In(Tcp(4000, 23, SYN));
    At(2);
    In(Tcp(4001, 23, SYN));
    Handle handle("pcap:" + m_Capture.Write());
    const kdi_blacklist_s record = Record("192.0.2.66", 1000);
    ASSERT_EQ(kdi_add_blacklist(handle.Get(), &record), 0);
    EXPECT_EQ(ToLines(handle.All()), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4001 23"});
}

TEST_F(HandleTest, ClosedHandleBlocksNothing) {
    const kdi_blacklist_s record = Record("192.0.2.66", 1000);
    kdi_handle_t handle = kdi_open_source("null", nullptr, nullptr, 0);
    ASSERT_NE(handle, nullptr);
    kdi_close(handle);
    EXPECT_EQ(kdi_add_blacklist(handle, &record), EBADF);
}

TEST_F(HandleTest, PacketsFromTheMomentOfHoldingBackOnWait) {
    At(0);
    In(Tcp(4000, 23, SYN));
    At(5);
    In(Tcp(4001, 23, SYN));
    Handle handle("pcap:" + m_Capture.Write());
    kdi_hold_back(handle.Get(), START + 5000000);
    velm_log_entry_s entry;
    ASSERT_EQ(handle.Next(entry), KDI_ENTRY);
    EXPECT_EQ(handle.Next(entry), KDI_TIMEOUT);
    EXPECT_EQ(handle.Next(entry), KDI_TIMEOUT);
    kdi_hold_back(handle.Get(), START + 5000001);
    EXPECT_EQ(handle.Next(entry), KDI_ENTRY);
    EXPECT_EQ(handle.Next(entry), KDI_END);
}

TEST_F(HandleTest, BlockWhilePacketsAreHeldBackBeginsAtThatMoment) {
    At(0);
    In(Tcp(4000, 23, SYN));
    At(5);
    In(Tcp(4001, 23, SYN));
    At(6);
    In(Tcp(4002, 23, SYN));
    Handle handle("pcap:" + m_Capture.Write());
    kdi_hold_back(handle.Get(), START + 1000000);
    velm_log_entry_s entry;
    ASSERT_EQ(handle.Next(entry), KDI_ENTRY);
    ASSERT_EQ(handle.Next(entry), KDI_TIMEOUT);
    const kdi_blacklist_s record = Record("192.0.2.66", 5000);
    ASSERT_EQ(kdi_add_blacklist(handle.Get(), &record), 0);
    kdi_hold_back(handle.Get(), START + 60000000);
    EXPECT_EQ(ToLines(handle.All()), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 4002 23"});
    EXPECT_EQ(handle.Statistics().dropped, 1u);
}
