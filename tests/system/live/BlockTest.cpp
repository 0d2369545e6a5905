#include <linux/capability.h>
#include <sys/syscall.h>

#include "Live.h"

// Blocks and the kernel's set.
namespace LiveTest {

using LiveBlockTest = Live;

// The thread without CAP_NET_ADMIN, as long as the object lives.
class WithoutPrivilege {
public:
    WithoutPrivilege() {
        Access(SYS_capget);
        m_Kept = m_Data[0].effective;
        m_Data[0].effective &= ~(1u << CAP_NET_ADMIN);
        Access(SYS_capset);
    }
    ~WithoutPrivilege() {
        m_Data[0].effective = m_Kept;
        Access(SYS_capset);
    }

private:
    void Access(long call) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        EXPECT_EQ(syscall(call, &header, m_Data), 0);
    }

    __user_cap_data_struct m_Data[2] = {};
    uint32_t m_Kept = 0;
};

TEST_F(LiveBlockTest, BlockedAddressIsInTheSetWithItsTime) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
    const std::string set = BlockedSet();
    EXPECT_NE(set.find("192.0.2.66 timeout 10m expires "), std::string::npos) << set;
    ASSERT_EQ(handle.Blocks().size(), 1u);
    EXPECT_EQ(handle.Blocks()[0].ipv4_addr, inet_addr(PEER));
    EXPECT_LE(handle.Blocks()[0].remaining_msec, 600'000u);
    EXPECT_GT(handle.Blocks()[0].remaining_msec, 400'000u);
    kdi_blacklist_s taken[2];
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), taken, 2), 1u);
    EXPECT_EQ(handle.Statistics().blocks_accepted, 1u);
}

TEST_F(LiveBlockTest, PacketsOfABlockedAddressAreDroppedAndOthersAreNot) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
    Send(Tcp(1, 23, SYN));
    Send(Tcp(2, 23, SYN), "192.0.2.67");
    EXPECT_EQ(KdiTest::ToLines(handle.Take(1)),
              KdiTest::Lines{"0 1 1 in fwd p6 192.0.2.67 > 192.0.2.10 2 23"});
    ASSERT_EQ(handle.Unblock(PEER), 0) << handle.Error();
    Send(Tcp(3, 23, SYN));
    EXPECT_EQ(KdiTest::ToLines(handle.Take(1)),
              KdiTest::Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 3 23"});
    EXPECT_EQ(handle.Statistics().dropped, 1u);
}

TEST_F(LiveBlockTest, SecondBlockExtendsTheFirst) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 60), 0) << handle.Error();
    ASSERT_EQ(handle.Block(PEER, 3600), 0) << handle.Error();
    EXPECT_NE(BlockedSet().find("192.0.2.66 timeout 1h expires "), std::string::npos)
        << BlockedSet();
    ASSERT_EQ(handle.Blocks().size(), 1u);
    EXPECT_GT(handle.Blocks()[0].remaining_msec, 3'000'000u);
}

TEST_F(LiveBlockTest, ShorterSecondBlockTakesNothingAway) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 3600), 0) << handle.Error();
    ASSERT_EQ(handle.Block(PEER, 60), 0) << handle.Error();
    EXPECT_GT(handle.Blocks()[0].remaining_msec, 3'000'000u);
    EXPECT_NE(BlockedSet().find("expires 59m"), std::string::npos) << BlockedSet();
}

TEST_F(LiveBlockTest, BlockEndsInTheSetAndInTheList) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 1), 0) << handle.Error();
    EXPECT_TRUE(handle.WorkUntil([&] { return handle.Blocks().empty() && !IsInSet(PEER); }));
    EXPECT_EQ(handle.Unblock(PEER), ENOENT);
    EXPECT_EQ(handle.Error(), "192.0.2.66 is not blocked");
}

TEST_F(LiveBlockTest, FlushedSetIsRepaired) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
    ASSERT_EQ(handle.Block("198.51.100.7", 600), 0) << handle.Error();
    Shell("nft flush set inet velm blocked4");
    ASSERT_FALSE(IsInSet(PEER));
    EXPECT_TRUE(handle.WorkUntil([&] { return IsInSet(PEER); }));
    EXPECT_TRUE(IsInSet("198.51.100.7"));
    EXPECT_EQ(handle.Statistics().blocks_repaired, 2u);
    EXPECT_EQ(handle.Message(),
              "blocks that were missing in set inet velm blocked4 and were put back: 2");
}

TEST_F(LiveBlockTest, FlushedRulesetIsLeftAloneUntilItIsLoadedAgain) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
    Shell("nft flush ruleset");
    std::string message;
    EXPECT_TRUE(handle.WorkUntil([&] { return !(message = handle.Message()).empty(); }));
    EXPECT_EQ(message,
              "blocks do not reach the kernel: set inet velm blocked4: No such file or directory");
    EXPECT_EQ(OutputOf("nft list ruleset"), "");
    LoadRuleset();
    EXPECT_TRUE(handle.WorkUntil([&] { return IsInSet(PEER); }));
    EXPECT_EQ(handle.Message(), "blocks reach the kernel again: set inet velm blocked4");
}

TEST_F(LiveBlockTest, BlockBeforeTheSetIsThereComesIntoItLater) {
    LiveHandle handle;
    EXPECT_EQ(handle.Block(PEER, 600), ENOENT);
    EXPECT_EQ(handle.Error(), "set inet velm blocked4: No such file or directory");
    LoadRuleset();
    EXPECT_TRUE(handle.WorkUntil([&] { return IsInSet(PEER); }));
}

TEST_F(LiveBlockTest, SetThatIsFullIsToldOnceHoweverOftenItIsLookedAt) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
    Shell(
        "nft 'delete table inet velm; add table inet velm; add set inet velm blocked4 { "
        "type ipv4_addr; flags timeout; size 1; elements = { 198.51.100.7 } }'");
    std::string message;
    EXPECT_TRUE(handle.WorkUntil([&] { return !(message = handle.Message()).empty(); }));
    EXPECT_EQ(message, "blocks do not reach the kernel: set inet velm blocked4: it is full");
    EXPECT_EQ(handle.Block("192.0.2.67", 600), ENOSPC);
    Shell("nft 'add table inet velm; delete element inet velm blocked4 { 198.51.100.7 }'");
    Shell("nft 'add element inet velm blocked4 { 198.51.100.8 }'");
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    handle.WorkUntil([&] { return std::chrono::steady_clock::now() > until; });
    EXPECT_EQ(handle.Message(), "");
    Shell("nft delete element inet velm blocked4 '{ 198.51.100.8 }'");
    EXPECT_TRUE(handle.WorkUntil([&] { return IsInSet(PEER); }));
    EXPECT_EQ(handle.Message(), "blocks reach the kernel again: set inet velm blocked4");
}

TEST_F(LiveBlockTest, HostsOwnAddressesAndLoopbackAreNeverBlocked) {
    LoadRuleset();
    Shell("ip addr add 203.0.113.9/32 dev lo");
    LiveHandle handle;
    for (const char* address : {HOST, "203.0.113.9", "127.0.0.1", "127.3.4.5", "0.0.0.0"}) {
        EXPECT_EQ(handle.Block(address, 600), ECANCELED) << address;
        EXPECT_EQ(handle.Error().find(std::string(address) + " is never blocked: it is "), 0u)
            << handle.Error();
        EXPECT_FALSE(IsInSet(address));
    }
    EXPECT_EQ(handle.Statistics().blocks_refused, 5u);
    EXPECT_TRUE(handle.Blocks().empty());
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), nullptr, 0), 0u);
}

TEST_F(LiveBlockTest, AddressThatTheHostGotMeanwhileIsNotBlocked) {
    LoadRuleset();
    LiveHandle handle;
    Shell("ip addr add 203.0.113.9/32 dev wan");
    EXPECT_EQ(handle.Block("203.0.113.9", 600), ECANCELED);
    EXPECT_EQ(handle.Error(), "203.0.113.9 is never blocked: it is this host's own address");
    Shell("ip addr del 203.0.113.9/32 dev wan");
    EXPECT_EQ(handle.Block("203.0.113.9", 600), 0) << handle.Error();
}

TEST_F(LiveBlockTest, BlockIsLiftedWhenTheHostGetsTheAddress) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_EQ(handle.Block("203.0.113.9", 600), 0) << handle.Error();
    Shell("ip addr add 203.0.113.9/32 dev wan");
    EXPECT_TRUE(handle.WorkUntil([&] { return !IsInSet("203.0.113.9"); }));
    EXPECT_TRUE(handle.Blocks().empty());
    EXPECT_EQ(handle.Message(),
              "block lifted: 203.0.113.9 is never blocked: it is this host's own address");
}

TEST_F(LiveBlockTest, AllowListIsNeverBlocked) {
    LoadRuleset();
    kdi_open_options_s options;
    options.allow = "198.51.100.0/24,2001:db8::/32,192.0.2.67";
    LiveHandle handle(options);
    EXPECT_EQ(handle.Block("198.51.100.7", 600), ECANCELED);
    EXPECT_EQ(handle.Error(), "198.51.100.7 is never blocked: it is on the allow list");
    EXPECT_EQ(handle.Block("192.0.2.67", 600), ECANCELED);
    EXPECT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
}

TEST_F(LiveBlockTest, DryRunRecordsAndDoesNotAct) {
    LoadRuleset();
    kdi_open_options_s options;
    options.dry_run = true;
    LiveHandle handle(options);
    EXPECT_EQ(handle.Block(PEER, 600), 0) << handle.Error();
    EXPECT_EQ(handle.Block(HOST, 600), ECANCELED);
    EXPECT_EQ(handle.Blocks().size(), 1u);
    kdi_blacklist_s record;
    EXPECT_EQ(kdi_take_blacklist(handle.Get(), &record, 1), 1u);
    EXPECT_FALSE(IsInSet(PEER));
    EXPECT_EQ(handle.Unblock(PEER), 0);
    EXPECT_TRUE(handle.Blocks().empty());
}

TEST_F(LiveBlockTest, NoTimeIsRefusedSinceTheKernelWouldTakeItForEver) {
    LoadRuleset();
    LiveHandle handle;
    EXPECT_EQ(handle.Block(PEER, 0), EINVAL);
    EXPECT_FALSE(IsInSet(PEER));
}

TEST_F(LiveBlockTest, WithoutThePrivilegeTheErrorSaysSo) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    const WithoutPrivilege dropped;
    EXPECT_EQ(handle.Block(PEER, 600), EPERM);
    EXPECT_NE(handle.Error().find("Operation not permitted"), std::string::npos) << handle.Error();
    EXPECT_TRUE(handle.Blocks().empty());
    EXPECT_EQ(handle.Statistics().blocks_failed, 1u);
}

TEST_F(LiveBlockTest, SourceDoesNotOpenWithoutThePrivilege) {
    const WithoutPrivilege dropped;
    const LiveHandle handle;
    EXPECT_EQ(handle.Get(), nullptr);
    EXPECT_EQ(handle.OpenError().find("cannot open source nflog:5: "), 0u) << handle.OpenError();
    EXPECT_NE(handle.OpenError().find("Operation not permitted"), std::string::npos)
        << handle.OpenError();
}

TEST_F(LiveBlockTest, ThousandsAreRestoredAtOnce) {
    LoadRuleset();
    LiveHandle handle;
    std::vector<kdi_block_s> blocks;
    for (uint32_t i = 0; i < 5000; ++i)
        blocks.push_back({htonl(0xC6120000 + i), 600'000});
    blocks.push_back({inet_addr(HOST), 600'000});
    Shell("nft add element inet velm blocked4 '{ 198.18.0.0 timeout 5s, 203.0.113.1 }'");
    ASSERT_EQ(
        kdi_restore_blocks(handle.Get(), blocks.data(), static_cast<unsigned int>(blocks.size())),
        0)
        << handle.Error();
    const std::string set = BlockedSet();
    EXPECT_NE(set.find("198.18.0.0 timeout 10m"), std::string::npos);
    EXPECT_NE(set.find("198.18.19.135 timeout 10m"), std::string::npos);
    EXPECT_NE(set.find("203.0.113.1"), std::string::npos);  // the administrator's own
    EXPECT_EQ(set.find(HOST), std::string::npos);
    EXPECT_EQ(handle.Blocks().size(), 5000u);
    EXPECT_EQ(handle.Statistics().blocks_refused, 1u);
    Shell("nft flush set inet velm blocked4");
    EXPECT_TRUE(handle.WorkUntil([&] { return handle.Statistics().blocks_repaired == 5000; }));
    EXPECT_TRUE(IsInSet("198.18.0.0"));
}

TEST_F(LiveBlockTest, WhatTheSetHoldsAtTheStartIsKnown) {
    LoadRuleset();
    Shell(
        "nft add element inet velm blocked4 '{ 192.0.2.66 timeout 600s, 203.0.113.1, "
        "192.0.2.10 timeout 600s }'");
    LiveHandle handle;
    ASSERT_EQ(handle.Blocks().size(), 1u);
    EXPECT_EQ(handle.Blocks()[0].ipv4_addr, inet_addr(PEER));
    EXPECT_GT(handle.Blocks()[0].remaining_msec, 400'000u);
    EXPECT_FALSE(IsInSet(HOST));  // the host's own came from elsewhere
}

}  // namespace LiveTest
