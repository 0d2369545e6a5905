#include "DetectionFixture.h"

// The sources' flows of a time bin, and what the closing of the bin makes of them.
namespace {

constexpr const char* kOther = "192.0.2.8";

class FlowStatisticTest : public DetectionTest {};

TEST_F(FlowStatisticTest, OneFlowOfANewSourceIsHarmless) {
    TouchPorts(kAttacker, kHost, 1);
    CloseBin();
    EXPECT_TRUE(Inside().candidates.empty());
    EXPECT_TRUE(Inside().flows.IsEmpty());
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(FlowStatisticTest, ThreePortsOfOneAddressAreHarmlessAndFourAreNot) {
    TouchPorts(kAttacker, kHost, 3);
    TouchPorts(kOther, kHost, 4);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), -1);
    EXPECT_GT(Ratio(kOther), 3.9);
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(FlowStatisticTest, ThreeAddressesOnOnePortAreHarmlessAndFourAreNot) {
    TouchHosts(kAttacker, 3);
    TouchHosts(kOther, 4);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), -1);
    EXPECT_GT(Ratio(kOther), 3.9);
}

TEST_F(FlowStatisticTest, FourAddressesOnFourPortsAreHarmless) {
    for (int i = 1; i <= 4; ++i)
        TouchPorts(kAttacker, ("10.0.0." + std::to_string(i)).c_str(), 4);
    CloseBin();
    EXPECT_TRUE(Inside().candidates.empty());
}

TEST_F(FlowStatisticTest, TheSamePortOverAndOverIsOneFlow) {
    for (int i = 0; i < 1000; ++i)
        Take(Syn(kAttacker, kHost, 80));
    EXPECT_EQ(FlowCount(kAttacker), 1u);
    CloseBin();
    EXPECT_TRUE(Inside().candidates.empty());
}

TEST_F(FlowStatisticTest, SixtyFourPortsOfOneAddressMakeACandidate) {
    TouchPorts(kAttacker, kHost, 64);
    CloseBin();
    EXPECT_EQ(Events(), Texts{});
    EXPECT_GT(Ratio(kAttacker), 3.9);
}

TEST_F(FlowStatisticTest, SixtyFivePortsOfOneAddressAreReportedAtOnce) {
    TouchPorts(kAttacker, kHost, 65);
    EXPECT_EQ(Events(), Texts{});
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|65"});
    EXPECT_EQ(Ratio(kAttacker), -1);
}

TEST_F(FlowStatisticTest, AHundredAndThirtyPortsOfTwoAddressesAreReportedAtOnce) {
    TouchPorts(kAttacker, kHost, 130);
    TouchPorts(kAttacker, "198.51.100.2", 1);
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|2|130"});
}

TEST_F(FlowStatisticTest, ManyAddressesOnOnePortAreNeverReportedAtOnce) {
    TouchHosts(kAttacker, 250);
    CloseBin();
    EXPECT_EQ(Events(), Texts{});
    EXPECT_GT(Ratio(kAttacker), 3.9);
}

TEST_F(FlowStatisticTest, AHostSweepIsReportedWhenItsFourthBinCloses) {
    for (int bin = 1; bin <= 4; ++bin) {
        EXPECT_EQ(Events(), Texts{});
        TouchHosts(kAttacker, 4);
        CloseBin();
    }
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|4|1"});
    EXPECT_TRUE(IsKnown(kAttacker, 1));
    EXPECT_TRUE(Inside().candidates.empty());
}

TEST_F(FlowStatisticTest, TcpAndUdpOfASourceAreTwoCandidates) {
    TouchPorts(kAttacker, kHost, 4);
    for (uint16_t port = 1; port <= 5; ++port)
        Take(Datagram(kAttacker, kHost, port));
    CloseBin();
    EXPECT_EQ(Inside().candidates.size(), 2u);
    EXPECT_GT(Ratio(kAttacker, 6), 3.9);
    EXPECT_GT(Ratio(kAttacker, 17), 3.9);
}

TEST_F(FlowStatisticTest, AReportForOneProtocolEndsTheObservationOfBoth) {
    for (uint16_t port = 1; port <= 4; ++port)
        Take(Datagram(kAttacker, kHost, port));
    CloseBin();
    const double before = Ratio(kAttacker, 17);
    TouchPorts(kAttacker, kHost, 65);
    CloseBin();
    Events();
    for (uint16_t port = 1; port <= 100; ++port)
        Take(Datagram(kAttacker, kHost, port));
    CloseBin();
    EXPECT_EQ(Events(), Texts{});
    EXPECT_EQ(Ratio(kAttacker, 17), before);
}

TEST_F(FlowStatisticTest, AReportOverTheCeilingCarriesWhatWasCollectedOverAllBins) {
    for (int bin = 0; bin < 4; ++bin) {
        TouchPorts(kAttacker, bin == 2 ? "198.51.100.2" : kHost, 5, 1 + 10 * bin);
        CloseBin();
    }
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|2|20"});
}

TEST_F(FlowStatisticTest, AReportByTheImmediateLimitCarriesTheLastBinOnlyAndEndsTheCandidate) {
    TouchPorts(kAttacker, "198.51.100.2", 10, 1);
    CloseBin();
    TouchPorts(kAttacker, kHost, 70, 1000);
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|70"});
    EXPECT_TRUE(Inside().candidates.empty());
}

TEST_F(FlowStatisticTest, TheObservationIsMadeOfTheBinAloneAndNotOfWhatWasCollected) {
    ScanBin(kAttacker);
    TouchPorts(kAttacker, kHost, 1, 100);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+0);
    EXPECT_EQ(Inside().candidates.begin()->second.first.second.size(), 5u);
}

TEST_F(FlowStatisticTest, TheCeilingIsNotTestedWhenACandidateIsMade) {
    MakeLogWith("ScanLikelihoodRatioCeiling", "3");
    ScanBin(kAttacker);
    EXPECT_EQ(Events(), Texts{});
    EXPECT_GT(Ratio(kAttacker), 3.9);
    ScanBin(kAttacker);
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|4"});
}

TEST_F(FlowStatisticTest, TheLimitsAreStrict) {
    MakeLogWith("ScanLikelihoodRatioCeiling", "16.000000000000007");
    ScanBin(kAttacker);
    ScanBin(kAttacker);
    EXPECT_EQ(Events(), Texts{});
    MakeLogWith("ScanLikelihoodRatioFloor", "1.0000000000000002");
    dom.ConditionRaise("app.configUpdated");
    ScanBin(kAttacker);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+0);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), -1);
}

TEST_F(FlowStatisticTest, AQuietBinIsAHarmlessObservationForEveryCandidate) {
    TouchPorts(kAttacker, kHost, 4);
    TouchPorts(kOther, kHost, 4);
    CloseBin();
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+0);
    EXPECT_EQ(Ratio(kOther), 0x1.0000000000001p+0);
}

TEST_F(FlowStatisticTest, ABinWithFlowsOfOthersOnlyLeavesACandidateAsItIs) {
    ScanBin(kAttacker);
    for (int bin = 0; bin < 20; ++bin) {
        TouchPorts(kOther, kHost, 1);
        CloseBin();
    }
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+2);
}

TEST_F(FlowStatisticTest, ABinThatClosesWithScansNotLookedForForgetsTheCandidates) {
    ScanBin(kAttacker);
    Configure(Configuration("[0] = {}"));
    Take(Syn(kOther, kHost, 80));
    CloseBin();
    EXPECT_TRUE(Inside().candidates.empty());
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(FlowStatisticTest, AQuietBinWithScansNotLookedForOnlyLowersTheRatio) {
    ScanBin(kAttacker);
    Inside().enabledProbes.reset(1);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+0);
}

TEST_F(FlowStatisticTest, AReportedHostStillCollectsFlowsWhichAreDroppedWithTheBin) {
    TouchPorts(kAttacker, kHost, 65);
    CloseBin();
    Events();
    TouchPorts(kAttacker, kHost, 65);
    EXPECT_EQ(FlowCount(kAttacker), 65u);
    CloseBin();
    EXPECT_EQ(Events(), Texts{});
    EXPECT_TRUE(Inside().candidates.empty());
    EXPECT_TRUE(Inside().flows.IsEmpty());
}

TEST_F(FlowStatisticTest, AReportedHostIsReportedAgainWhenItIsForgotten) {
    TouchPorts(kAttacker, kHost, 65);
    CloseBin();
    EXPECT_EQ(Events().size(), 1u);
    VelmCore::AdvanceTickCount(300000);
    Maintain();
    TouchPorts(kAttacker, kHost, 65);
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|65"});
}

TEST_F(FlowStatisticTest, SourcesAreJudgedInTheOrderOfTheirAddressesAsNumbers) {
    // The first byte on the wire is the lowest one of the number.
    for (const char* source : {"1.0.0.9", "9.0.0.2", "5.0.0.2"})
        TouchPorts(source, kHost, 65);
    CloseBin();
    EXPECT_EQ(Events(), (Texts{"7001: HostOrPortScan|5.0.0.2|6|0|1|65",
                               "7001: HostOrPortScan|9.0.0.2|6|0|1|65",
                               "7001: HostOrPortScan|1.0.0.9|6|0|1|65"}));
}

TEST_F(FlowStatisticTest, ABinClosesWhenMoreThanItsLengthHasPassed) {
    CloseBin();
    TouchPorts(kAttacker, kHost, 65);
    VelmCore::AdvanceTickCount(10000);
    EXPECT_TRUE(Maintain());
    EXPECT_EQ(Events(), Texts{});
    VelmCore::AdvanceTickCount(1);
    EXPECT_FALSE(Maintain());
    EXPECT_EQ(Events().size(), 1u);
}

TEST_F(FlowStatisticTest, TheFirstBinBeginsAtTickZero) {
    EXPECT_EQ(Inside().lastTimeBinTicks, 0u);
    TouchPorts(kAttacker, kHost, 65);
    VelmCore::SetTickCount(10000);
    EXPECT_TRUE(Maintain());
    VelmCore::SetTickCount(10001);
    EXPECT_FALSE(Maintain());
    EXPECT_EQ(Inside().lastTimeBinTicks, 10001u);
}

TEST_F(FlowStatisticTest, ALongWaitClosesOneBinAndNotSeveral) {
    ScanBin(kAttacker);
    VelmCore::AdvanceTickCount(100000);
    Maintain();
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+0);
}

TEST_F(FlowStatisticTest, ABinClosesAcrossTheWrapOfTheClock) {
    VelmCore::SetTickCount(0xFFFFF000u);
    Maintain();
    TouchPorts(kAttacker, kHost, 65);
    VelmCore::SetTickCount(0xFFFFF000u + 10000u);
    EXPECT_TRUE(Maintain());
    VelmCore::SetTickCount(0xFFFFF000u + 10001u);
    EXPECT_FALSE(Maintain());
    EXPECT_EQ(Events().size(), 1u);
}

TEST_F(FlowStatisticTest, WithinABinOnlyExpiredHostsAreForgotten) {
    Take(Syn(kOther, kHost, 1));
    CloseBin();
    Report(0, kAttacker);
    VelmCore::AdvanceTickCount(299999);
    Maintain();
    EXPECT_TRUE(IsKnown(kAttacker, 0));
    Take(Syn(kOther, kHost, 1));
    VelmCore::AdvanceTickCount(1);
    EXPECT_TRUE(Maintain());
    EXPECT_FALSE(IsKnown(kAttacker, 0));
    EXPECT_EQ(FlowCount(kOther), 1u);
}

TEST_F(FlowStatisticTest, AHostWhoseTickIsNowIsForgotten) {
    Inside().knownProbers[{Address(kAttacker), 1}] = 5000;
    Inside().knownProbers[{Address(kOther), 1}] = 5001;
    VelmCore::SetTickCount(5000);
    Maintain();
    EXPECT_FALSE(IsKnown(kAttacker, 1));
    EXPECT_TRUE(IsKnown(kOther, 1));
}

TEST_F(FlowStatisticTest, AnExpiryBehindTheWrapOfTheClockLiesInTheFuture) {
    VelmCore::SetTickCount(0xFFFFFF00u);
    Take(Syn(kOther, kHost, 1));
    Report(0, kAttacker);
    Maintain();
    EXPECT_TRUE(IsKnown(kAttacker, 0));
    VelmCore::SetTickCount(299743);  // one before the expiry, 0xFFFFFF00 + 300000
    Maintain();
    EXPECT_TRUE(IsKnown(kAttacker, 0));
    VelmCore::SetTickCount(299744);
    Maintain();
    EXPECT_FALSE(IsKnown(kAttacker, 0));
}

TEST_F(FlowStatisticTest, EachHostIsForgottenByItsOwnTick) {
    Inside().knownProbers[{Address(kAttacker), 0}] = 2000;
    Inside().knownProbers[{Address(kAttacker), 1}] = 9000;
    Inside().knownProbers[{Address(kOther), 4}] = 1500;
    VelmCore::SetTickCount(2000);
    Maintain();
    EXPECT_EQ(Inside().knownProbers.size(), 1u);
    EXPECT_TRUE(IsKnown(kAttacker, 1));
}

TEST_F(FlowStatisticTest, TheTraceTellsAddressesInWireOrder) {
    TraceScans();
    Take(Syn(kAttacker, kHost, 1));
    Take(Syn(kAttacker, kHost, 2));
    EXPECT_TRUE(
        HasTrace("Source IP 192.0.2.7 protocol 6 has visited 1 unique IPs and 2 unique ports."));
    CloseBin();
    ScanBin(kAttacker);
    Trace();
    CloseBin();
    EXPECT_TRUE(HasTrace("Likelihood ratio for IP 192.0.2.7 protocol 6 is currently 1.000000"));
    for (int bin = 0; bin < 3; ++bin)
        CloseBin();
    Trace();
    CloseBin();
    EXPECT_TRUE(
        HasTrace("Removed IP 192.0.2.7 protocol 6 from consideration as a host/port scanner"));
    TouchPorts(kAttacker, kHost, 65);
    CloseBin();
    EXPECT_TRUE(
        HasTrace("AnalyzeTerminatedFlow: exceeded threshold for port-scanner numPorts = 65.000000, "
                 "numIps = 1.000000, PortsPerIpFlagNow = 64.000000"));
    VelmCore::AdvanceTickCount(300000);
    Maintain();
    EXPECT_TRUE(
        HasTrace("Removing IP 192.0.2.7 from list of known probing/attacking hosts for attack "
                 "HostOrPortScan."));
}

}  // namespace
