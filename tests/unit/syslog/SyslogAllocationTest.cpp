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

// A script call allocates the text that it gets from here, and Lua's copy of it, besides.
TEST_F(SyslogAllocationTest, PacketLogAllocatesNothing) {
    SKIP_WITHOUT_COUNT();
    for (const int format : {0, 1, 2}) {
        for (const uint32_t filter : {0u, 20u, 1234u, 4711u}) {
            velm_log_entry_s entry = TcpEntry();
            entry.log_filter_id = filter;
            entry.log_reason = filter == 0 ? 103 : 0;
            entry.log_ip.v4.iph_frag = htons(0x6000);
            EXPECT_EQ(Count(true, format, entry), 0u) << "CEF " << format << ", " << filter;
            EXPECT_EQ(Count(false, format, entry), 0u) << "plain " << format << ", " << filter;
        }
    }
}

TEST_F(SyslogAllocationTest, PayloadLogAllocatesNothing) {
    SKIP_WITHOUT_COUNT();
    for (const int format : {0, 1, 2}) {
        for (const uint32_t filter : {0u, 1004u, 1006u, 4711u}) {
            for (const char first : {'/', '\x01'}) {
                velm_log_entry_s entry = PayloadEntry();
                entry.log_filter_id = filter;
                entry.log_reason = -806;
                entry.log_action = 0x81;
                entry.log_note[0] = static_cast<uint8_t>(first);
                EXPECT_EQ(Count(true, format, entry), 0u) << "CEF " << format << ", " << filter;
                EXPECT_EQ(Count(false, format, entry), 0u) << "plain " << format << ", " << filter;
            }
        }
    }
}

TEST_F(SyslogAllocationTest, EscapedNamesAllocateNothing) {
    SKIP_WITHOUT_COUNT();
    configuration.Set(
        "{payloadFilterMap = {[9] = {name = 'a=b|c\\\\d\\n e\\195\\164 and so on, for longer than "
        "any "
        "string holds in itself', identifier = '10=|\\r'}}}");
    dom.SetText("velm.host.name", "web=1|\n\xC3\xA4 with a name that is longer than it need be");
    velm_log_entry_s entry = PayloadEntry();
    entry.log_filter_id = 9;
    for (const int format : {0, 1, 2}) {
        EXPECT_EQ(Count(true, format, entry), 0u) << "CEF " << format;
        EXPECT_EQ(Count(false, format, entry), 0u) << "plain " << format;
    }
}

// The count is of those that happen: settings that have changed are read anew.
TEST_F(SyslogAllocationTest, ChangedSettingsAllocate) {
    SKIP_WITHOUT_COUNT();
    const size_t before = s_Allocations;
    dom.SetText("velm.host.name", "another");
    Cef(2, TcpEntry());
    EXPECT_GT(s_Allocations, before);
}

}  // namespace
