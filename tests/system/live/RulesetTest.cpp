#include "Live.h"

// What the agent's ruleset does beside denying.
namespace LiveTest {

using LiveRulesetTest = Live;
using KdiTest::Lines;
using KdiTest::ToLines;

TEST_F(LiveRulesetTest, RulesetLimitsWhatItLogsAndCountsTheRest) {
    LoadRuleset();
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    constexpr unsigned int SENT = 30000;
    for (unsigned int i = 0; i < SENT; ++i)
        Send(Udp(40000, 1000 + i % 10000));
    const size_t logged = handle.TakeAll().size();
    EXPECT_GE(logged, 2000u);
    EXPECT_LT(logged, SENT);
    EXPECT_EQ(handle.Statistics().unlogged, SENT - logged);
}

TEST_F(LiveRulesetTest, RulesetLoadsTwiceAndGoesWithoutTouchingOtherTables) {
    Shell("nft 'table ip other { chain c { type filter hook input priority 5; accept; }; }'");
    const std::string other = OutputOf("nft list ruleset");
    LoadRuleset();
    Shell("nft add element inet velm blocked4 '{ 198.51.100.1 timeout 600s }'");
    const std::string once = OutputOf("nft -s list ruleset");
    LoadRuleset();
    EXPECT_EQ(OutputOf("nft -s list ruleset"), once);
    EXPECT_TRUE(IsInSet("198.51.100.1"));
    Shell("nft delete table inet velm");
    EXPECT_EQ(OutputOf("nft list ruleset"), other);
}

TEST_F(LiveRulesetTest, AllowListIsNeverBlocked) {
    Shell("sed 's/^define allow4 = .*/define allow4 = { 127.0.0.0\\/8, 192.0.2.66 }/' " VELM_RULESET
          " | nft -f -");
    Shell(
        "nft add element inet velm blocked4 '{ 192.0.2.66 timeout 600s, 192.0.2.67 timeout 600s "
        "}'");
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    Send(Tcp(1, 23, SYN), "192.0.2.67");
    Send(Tcp(2, 23, SYN));
    EXPECT_EQ(ToLines(handle.Take(1)), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 2 23"});
    EXPECT_EQ(handle.Statistics().dropped, 1u);
}

TEST_F(LiveRulesetTest, BlockedIpv6AddressIsDropped) {
    LoadRuleset();
    Shell("nft add element inet velm blocked6 '{ 2001:db8:2::66 timeout 600s }'");
    LiveHandle handle;
    ASSERT_NE(handle.Get(), nullptr) << handle.OpenError();
    SendIpv6();
    Send(Tcp(2, 23, SYN));
    EXPECT_EQ(ToLines(handle.Take(1)), Lines{"0 1 1 in fwd p6 192.0.2.66 > 192.0.2.10 2 23"});
    EXPECT_EQ(handle.Statistics().dropped, 1u);
}

TEST_F(LiveRulesetTest, LoopbackIsNeverDenied) {
    LoadRuleset();
    Shell("nft add element inet velm blocked4 '{ 127.0.0.1 timeout 600s }'");
    const Descriptor server(socket(AF_INET, SOCK_DGRAM, 0)), client(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(5000);
    at.sin_addr.s_addr = inet_addr("127.0.0.1");
    ASSERT_EQ(bind(server.Get(), reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    ASSERT_EQ(sendto(client.Get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&at), sizeof at), 1);
    char byte = 0;
    EXPECT_EQ(recv(server.Get(), &byte, 1, MSG_DONTWAIT), 1);
}

}  // namespace LiveTest
