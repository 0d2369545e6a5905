// What formatting costs in heap allocations. Every allocation of the program is counted here, those
// of libraries too; so it is a program of its own.

#include <cstdlib>

#include "SyslogFixture.h"
#include "SyslogText.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define COUNTS_ALLOCATIONS 0
#else
#define COUNTS_ALLOCATIONS 1
#endif

namespace {

size_t s_Allocations = 0;

#define SKIP_WITHOUT_COUNT() \
    if (!COUNTS_ALLOCATIONS) GTEST_SKIP() << "skipped: a sanitizer has the allocator"

}  // namespace

#if COUNTS_ALLOCATIONS
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) {
    ++s_Allocations;
    return __libc_malloc(size);
}
#endif

namespace {

TEST(SyslogItemAllocationTest, ItemsOfTheBodyAllocateNothing) {
    SKIP_WITHOUT_COUNT();
    velm_log_entry_s icmp = TcpEntry();
    icmp.log_ip.v4.iph_proto = 1;
    char buffer[4096];
    OSTREL::TextCursor text(buffer, sizeof buffer);
    const velm_log_entry_s entries[] = {TcpEntry(), icmp, Ipv6Entry(17), PayloadEntry()};
    const size_t before = s_Allocations;
    for (const int format : {0, 1, 2}) {
        for (const velm_log_entry_s& entry : entries) {
            OSTREL::AppendIPsSyslog(format, text, entry);
            OSTREL::AppendLengthSyslog(text, entry.log_packet_len);
            OSTREL::AppendFragFlagsSyslog(format, text, entry);
            OSTREL::AppendProtocolSyslog(format, text, entry);
            OSTREL::AppendPortsSyslog(format, text, entry);
            OSTREL::AppendTCPFlagsSyslog(format, text, entry);
            OSTREL::AppendICMPSyslog(format, text, entry);
            OSTREL::AppendRepeatCountSyslog(format, text, entry);
        }
    }
    EXPECT_EQ(s_Allocations, before);
    EXPECT_GT(text.Length(), 500u);
}

class SyslogAllocationTest : public SyslogTest {
protected:
    // Allocations of one message, into a text that has room for it.
    size_t Count(bool cef, int format, const velm_log_entry_s& entry) {
        Choose(cef, format);
        OSTREL::WorkingRecord record;
        record.Assign(entry, nullptr, 0, nullptr, 0);
        OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
        std::string out;
        out.reserve(65536);
        log.SetConfigUtils(&utils);
        log.SyslogFormat(&record, out);
        const size_t before = s_Allocations;
        log.SyslogFormat(&record, out);
        const size_t count = s_Allocations - before;
        log.SetConfigUtils(nullptr);
        configuration.EndCall();
        return count;
    }
};

// Addresses, ports, flags, fragments, positions and labels cost nothing.
TEST_F(SyslogAllocationTest, LongerBodyAllocatesNoMore) {
    SKIP_WITHOUT_COUNT();
    velm_log_entry_s full = PayloadEntry();
    full.log_ip.v4.iph_frag = htons(0x6000);
    full.log_flags = 0x10 | 0x40;
    full.log_reason = -101;
    full.log_note_len = 0;
    full.log_packet_data_len = 0;
    velm_log_entry_s bare = BarePayloadLog(1004, -101, 1);
    for (const bool cef : {true, false}) {
        for (const int format : {0, 1, 2}) {
            EXPECT_EQ(Count(cef, format, full), Count(cef, format, bare))
                << (cef ? "CEF" : "plain") << ", format " << format;
        }
    }
}

// The names, the escaped texts, the hardware addresses in hexadecimal, and the settings.
TEST_F(SyslogAllocationTest, MessageAllocatesItsTextsOnly) {
    SKIP_WITHOUT_COUNT();
    constexpr size_t kMost = 128;
    for (const velm_log_entry_s& entry : {TcpEntry(), PayloadEntry()}) {
        for (const int format : {0, 1, 2}) {
            EXPECT_LT(Count(true, format, entry), kMost) << "CEF, format " << format;
            EXPECT_LT(Count(false, format, entry), kMost) << "plain, format " << format;
        }
    }
}

}  // namespace
