#include <map>
#include <ostream>

#include "Replay.h"

using namespace KdiTest;

namespace {

// What a recorded capture holds, counted with packet analysers (tcpdump, tshark) and not with ours.
struct Recorded {
    const char* file;
    uint64_t packets;
    std::map<int, size_t> inboundReasons;  // entries by reason
    const char* host;
};

std::ostream& operator<<(std::ostream& out, const Recorded& recorded) {
    return out << recorded.file;
}

class RecordedCaptureTest : public testing::TestWithParam<Recorded> {};

const char* const HOST4 =
    "local address 192.0.2.10 (from the capture: interface 02:00:c0:00:02:0a)";
const char* const HOST6 =
    "local address 2001:db8:2::10 (from the capture: interface 02:00:c0:00:02:0a)";

// A scanner's SYN to a port that answers is accepted, and its reset ends the connection (10001).
const Recorded CAPTURES[] = {
    {"nmap-sS-1000.pcap", 2008, {{0, 994}, {10001, 6}}, HOST4},
    {"nmap-sS-1000-filtered.pcap", 2013, {{0, 1994}, {10001, 5}}, HOST4},
    {"nmap-sT-1000.pcap", 2012, {{0, 994}, {10001, 6}}, HOST4},
    {"nmap-sX-1000.pcap", 2002, {{101, 1005}}, HOST4},
    {"nmap-sN-1000.pcap", 2002, {{101, 1005}}, HOST4},
    {"nmap-sF-1000.pcap", 2002, {{100, 1005}}, HOST4},
    {"nmap-sA-1000.pcap", 2002, {{100, 1000}}, HOST4},
    {"nmap-scanflags-SYNFIN.pcap", 402, {{101, 204}}, HOST4},
    {"nmap-scanflags-0xFF.pcap", 122, {{101, 120}}, HOST4},
    {"nmap-frag-f.pcap", 806, {{0, 196}, {108, 196}, {10001, 4}}, HOST4},
    {"nmap-frag-ff.pcap", 306, {{0, 96}, {108, 96}, {10001, 4}}, HOST4},
    {"nmap6-sS-1000.pcap", 2006, {{0, 996}, {10001, 4}}, HOST6},
    {"nmap6-sX-200.pcap", 402, {{101, 203}}, HOST6},
    {"masscan-1000.pcap", 3004, {{0, 996}, {100, 996}, {10001, 4}}, HOST4},
    {"hping-single-each.pcap", 13, {{100, 5}, {101, 6}}, HOST4},
    {"hping-null-df.pcap", 20, {{101, 20}}, HOST4},
    {"mixed-two-scanners.pcap", 574, {{0, 96}, {101, 63}, {10000, 20}, {10001, 4}}, HOST4},
    {"benign-http-120-small.pcap", 1442, {{10000, 120}}, HOST4},
    {"benign-8-clients.pcap", 592, {{10000, 48}}, HOST4},
    {"benign-dns-udp.pcap", 280, {}, HOST4},
    {"benign-server-resets.pcap", 60, {{0, 30}}, HOST4},
    {"benign-monitoring.pcap", 210, {{0, 5}, {10000, 15}, {10001, 10}}, HOST4},
};

}  // namespace

TEST_P(RecordedCaptureTest, GivesTheEntriesThatItsPacketsCallFor) {
    const Recorded& recorded = GetParam();
    Handle handle(std::string("pcap:") + KDI_TEST_CAPTURES + "/" + recorded.file);
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    std::map<int, size_t> reasons;
    for (const velm_log_entry_s& entry : handle.All()) {
        if (!(entry.log_flags & LOG_FLAG_OUTGOING)) ++reasons[entry.log_reason];
    }
    EXPECT_EQ(handle.Last(), KDI_END);
    EXPECT_EQ(reasons, recorded.inboundReasons);
    EXPECT_EQ(handle.Statistics().packets, recorded.packets);
    EXPECT_EQ(handle.Describe(), recorded.host);
}

TEST_P(RecordedCaptureTest, GivesTheSameEntriesOnEveryReading) {
    const std::string source = std::string("pcap:") + KDI_TEST_CAPTURES + "/" + GetParam().file;
    Handle first(source), second(source);
    const auto a = first.All(), b = second.All();
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        ASSERT_EQ(std::string(reinterpret_cast<const char*>(&a[i]), sizeof a[i]),
                  std::string(reinterpret_cast<const char*>(&b[i]), sizeof b[i]));
    }
}

INSTANTIATE_TEST_SUITE_P(Captures, RecordedCaptureTest, testing::ValuesIn(CAPTURES));

TEST(RecordedCapture, SynScanInTinyFragmentsLooksLikeNoNullScan) {
    Handle handle(std::string("pcap:") + KDI_TEST_CAPTURES + "/nmap-frag-f.pcap");
    for (const velm_log_entry_s& entry : handle.All()) {
        if (!(entry.log_flags & LOG_FLAG_TRANSPORT)) continue;
        EXPECT_EQ(entry.log_transport.tcp.tcph_flags, SYN) << Line(entry);
    }
}
