#include <cerrno>

#include "DetectionFixture.h"
#include "kdi/testing.h"

// Timed blocks in the driver.
namespace {

class BlacklistTest : public DetectionTest {
protected:
    static constexpr const char* kBlocking = "[4] = {blockAttackerSeconds = 600}";

    // An Xmas packet of this source, with types that block for 600 seconds.
    void Probe(const char* source) {
        velm_log_entry_s entry = Crafted(0x29);
        entry.log_ip.v4.iph_src = Address(source);
        Take(entry);
    }
    bool IsKnownFor600Seconds(const char* source) {
        VelmCore::AdvanceTickCount(599999);
        Maintain();
        const bool isKnown = IsKnown(source, 4);
        VelmCore::AdvanceTickCount(1);
        Maintain();
        return isKnown && !IsKnown(source, 4);
    }
};

TEST_F(BlacklistTest, TheRecordIsTwelveBytesWithMillisecondsAndTheAddressAsOnTheWire) {
    Configure(Configuration(kBlocking));
    Probe(kAttacker);
    // 600,000 is 0x000927C0.
    const Record expected = {0, 4, 0, 0, 0xC0, 0x27, 0x09, 0x00, 192, 0, 2, 7};
    EXPECT_EQ(Blocks(), std::vector<Record>{expected});
}

TEST_F(BlacklistTest, ABlockedHostIsKnownForTheBlockTime) {
    Configure(Configuration(kBlocking));
    Probe(kAttacker);
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|600"});
    EXPECT_TRUE(IsKnownFor600Seconds(kAttacker));
}

TEST_F(BlacklistTest, ABlockedHostIsBlockedAgainOnceItIsForgotten) {
    Configure(Configuration(kBlocking));
    Probe(kAttacker);
    Probe(kAttacker);
    EXPECT_EQ(Blocks().size(), 1u);
    VelmCore::AdvanceTickCount(600000);
    Maintain();
    Probe(kAttacker);
    EXPECT_EQ(Blocks().size(), 1u);
}

TEST_F(BlacklistTest, AScanIsBlockedWhenItsBinCloses) {
    Configure(Configuration("[1] = {blockAttackerSeconds = 60}"));
    TouchPorts(kAttacker, kHost, 65);
    EXPECT_TRUE(Blocks().empty());
    CloseBin();
    const Record expected = {0, 4, 0, 0, 0x60, 0xEA, 0, 0, 192, 0, 2, 7};
    EXPECT_EQ(Blocks(), std::vector<Record>{expected});
}

TEST_F(BlacklistTest, WithoutABlockTimeTheDriverIsNotAsked) {
    Probe(kAttacker);
    EXPECT_TRUE(Blocks().empty());
}

TEST_F(BlacklistTest, TheLoopbackNetIsExemptAndStaysKnownForTheBlockTime) {
    Configure(Configuration(kBlocking));
    Probe("127.0.0.1");
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|127.0.0.1|6|0"});
    EXPECT_TRUE(Blocks().empty());
    EXPECT_TRUE(IsKnownFor600Seconds("127.0.0.1"));
}

TEST_F(BlacklistTest, TheWholeLoopbackNetIsExemptAndItsNeighboursAreNot) {
    Configure(Configuration(kBlocking));
    Probe("127.255.255.255");
    EXPECT_TRUE(Blocks().empty());
    Probe("126.0.0.127");
    Probe("128.0.0.127");
    EXPECT_EQ(Blocks().size(), 2u);
}

TEST_F(BlacklistTest, TheHostsOwnAddressIsExempt) {
    Configure(Configuration(kBlocking, "", "platformInterfaceMap = {['192.0.2.7'] = {}}"));
    Probe(kAttacker);
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|0"});
    EXPECT_TRUE(Blocks().empty());
    EXPECT_EQ(leftovers, 0);
    EXPECT_TRUE(IsKnownFor600Seconds(kAttacker));
}

TEST_F(BlacklistTest, AnEntryOfTheInterfaceMapThatIsNoTableExemptsNothing) {
    Configure(Configuration(kBlocking, "", "platformInterfaceMap = {['192.0.2.7'] = 'eth0'}"));
    Probe(kAttacker);
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|600"});
    EXPECT_EQ(Blocks().size(), 1u);
    EXPECT_EQ(leftovers, 0);
}

TEST_F(BlacklistTest, WithoutTheInterfaceMapNothingIsBlockedAndAValueStaysOnTheStack) {
    Configure(Configuration(kBlocking, "", ""));
    VelmCore::EnableTrace("ostrel", true);
    Probe(kAttacker);
    EXPECT_TRUE(HasTrace("Could not get packet filter log map"));
    EXPECT_EQ(leftovers, 1);
    EXPECT_EQ(Events(), Texts{"7004: XmasScan|192.0.2.7|6|0"});
    EXPECT_TRUE(Blocks().empty());
}

// Each of the sources leaves a value behind within one call.
TEST_F(BlacklistTest, WithoutTheInterfaceMapAFloodOfScannersDoesNotOverflowTheStack) {
    MakeLogWith("ScanPortsPerIpFlagNow", "0.5");
    Configure(Configuration("[1] = {blockAttackerSeconds = 60}", "", ""));
    Take(Syn("10.0.0.1", kHost, 1));
    VelmCore::CConnectionTableEntry flow;
    for (uint32_t i = 0; i < 20000; ++i) {
        flow.srcAddress = htonl(0x0A000000u + i);
        Log().HandleTerminatedFlow(flow, 6);
    }
    CloseBin();
    EXPECT_GE(Inside().knownProbers.size(), 20000u);
    EXPECT_LT(leftovers, 2000);
}

TEST_F(BlacklistTest, ARefusalOfTheDriverIsToldTwiceAndTheEventShowsTheBlockTime) {
    Configure(Configuration(kBlocking));
    Take(Syn("10.0.0.1", kHost, 1));
    VelmCore::TakeLog();
    kdi_testing_fail_blacklist(ENOSPC);
    Probe(kAttacker);
    EXPECT_EQ(
        TakeLogLines(),
        Texts{"error: Driver command code failed BLACKLIST_ADD 28 (No space left on device)"});
    EXPECT_EQ(Events(), (Texts{"1001: BLACKLIST_ADD|28 (No space left on device)",
                               "7004: XmasScan|192.0.2.7|6|600"}));
    EXPECT_TRUE(Blocks().empty());
}

TEST_F(BlacklistTest, ARefusedBlockIsNotTriedAgainUntilTheHostIsForgotten) {
    Configure(Configuration(kBlocking));
    kdi_testing_fail_blacklist(EPERM);
    Probe(kAttacker);
    Probe(kAttacker);
    EXPECT_TRUE(Blocks().empty());
    VelmCore::AdvanceTickCount(600000);
    Maintain();
    Probe(kAttacker);
    EXPECT_EQ(Blocks().size(), 1u);
}

TEST_F(BlacklistTest, TheResultTellsWhetherTheDriverAccepted) {
    Configure(Configuration(kBlocking));
    OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
    bool skipped = true;
    EXPECT_TRUE(utils.BlacklistIp(Driver(), Address(kAttacker), kAttacker, 1, skipped));
    EXPECT_FALSE(skipped);
    kdi_testing_fail_blacklist(EIO);
    EXPECT_FALSE(utils.BlacklistIp(Driver(), Address(kAttacker), kAttacker, 1, skipped));
    EXPECT_FALSE(skipped);
    EXPECT_FALSE(utils.BlacklistIp(Driver(), Address("127.1.2.3"), "127.1.2.3", 1, skipped));
    EXPECT_TRUE(skipped);
    EXPECT_EQ(configuration.Leftovers(), 0);
}

TEST_F(BlacklistTest, ANullHandleIsTracedAndBlocksNothing) {
    VelmCore::EnableTrace("ostrel", true);
    OSTREL::ConfigUtils utils(configuration.State(), ConfigurationTable::kIndex);
    bool skipped = true;
    EXPECT_FALSE(utils.BlacklistIp(nullptr, Address(kAttacker), kAttacker, 1, skipped));
    EXPECT_FALSE(skipped);
    EXPECT_TRUE(HasTrace("KDI handle is NULL kdi_add_blacklist was not called"));
}

}  // namespace
