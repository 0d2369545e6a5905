#include <cmath>

#include "DetectionFixture.h"

// The ratio of a candidate, step by step, in exact doubles. 1 - 0.8 is not exact, so that the
// factor of a scan-like observation is one unit in the last place above 4.
namespace {

class LikelihoodTest : public DetectionTest {};

TEST_F(LikelihoodTest, TheFactorsOfTheDefaults) {
    EXPECT_EQ(Inside().likelihoodFactorY0, 0x1.0000000000000p-2);
    EXPECT_EQ(Inside().likelihoodFactorY1, 0x1.0000000000001p+2);
}

TEST_F(LikelihoodTest, FourScanLikeBinsGoOverTheCeiling) {
    ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+2);  // 4.000000000000001
    ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000002p+4);  // 16.000000000000007
    ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000003p+6);  // 64.00000000000004
    EXPECT_EQ(Events(), Texts{});
    ScanBin(kAttacker);  // 256.0000000000002
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|4"});
    EXPECT_EQ(Ratio(kAttacker), -1);
}

TEST_F(LikelihoodTest, TheFourthRatioIs256) {
    MakeLogWith("ScanLikelihoodRatioCeiling", "1000");
    for (int bin = 0; bin < 4; ++bin)
        ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000004p+8);
}

TEST_F(LikelihoodTest, TheFifthQuietBinRemovesACandidateOfOneBin) {
    ScanBin(kAttacker);
    const double expected[] = {0x1.0000000000001p+0, 0x1.0000000000001p-2, 0x1.0000000000001p-4,
                               0x1.0000000000001p-6};  // 1, 0.25, 0.0625, 0.015625
    for (const double ratio : expected) {
        CloseBin();
        EXPECT_EQ(Ratio(kAttacker), ratio);
    }
    CloseBin();  // 0.00390625
    EXPECT_EQ(Ratio(kAttacker), -1);
}

TEST_F(LikelihoodTest, TheFifthHarmlessBinOfItsOwnRemovesACandidateAsWell) {
    ScanBin(kAttacker);
    for (int bin = 0; bin < 4; ++bin) {
        TouchPorts(kAttacker, kHost, 1);
        CloseBin();
    }
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p-6);
    TouchPorts(kAttacker, kHost, 1);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), -1);
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(LikelihoodTest, ARemovedCandidateBeginsAnewWithTheFirstFactor) {
    ScanBin(kAttacker);
    for (int bin = 0; bin < 5; ++bin)
        CloseBin();
    ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 0x1.0000000000001p+2);
    EXPECT_EQ(Inside().candidates.begin()->second.first.second.size(), 4u);
}

TEST_F(LikelihoodTest, TheProbabilitiesOfTheSettingsGiveTheFactors) {
    dom.SetText("plg.ostrel.analysis.ScanPrY0H0", "0.75");
    MakeLogWith("ScanPrY0H1", "0.5");
    EXPECT_EQ(Inside().likelihoodFactorY0, 0.5 / 0.75);
    EXPECT_EQ(Inside().likelihoodFactorY1, 2.0);
    ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 2.0);
    ScanBin(kAttacker);
    EXPECT_EQ(Ratio(kAttacker), 4.0);
}

TEST_F(LikelihoodTest, ACertainlyHarmlessBinMakesTheFirstScanLikeOneDecisive) {
    MakeLogWith("ScanPrY0H0", "1");
    EXPECT_TRUE(std::isinf(Inside().likelihoodFactorY1));
    ScanBin(kAttacker);
    EXPECT_EQ(Events(), Texts{});
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|4"});
}

TEST_F(LikelihoodTest, ARatioThatIsNoNumberPassesNeitherLimitAndStays) {
    dom.SetText("plg.ostrel.analysis.ScanPrY0H0", "0");
    MakeLogWith("ScanPrY0H1", "0");  // 0 / 0 for a harmless bin
    ScanBin(kAttacker);
    for (int bin = 0; bin < 20; ++bin)
        CloseBin();
    EXPECT_TRUE(std::isnan(Ratio(kAttacker)));
    ScanBin(kAttacker);
    EXPECT_TRUE(std::isnan(Ratio(kAttacker)));
    EXPECT_EQ(Events(), Texts{});
}

TEST_F(LikelihoodTest, PortsAndAddressesHaveLimitsOfTheirOwn) {
    dom.SetText("plg.ostrel.analysis.ScanPortsPerIp", "5");
    MakeLogWith("ScanIpsPerPort", "2");
    TouchPorts(kAttacker, kHost, 5);
    TouchHosts("192.0.2.8", 3);
    CloseBin();
    EXPECT_EQ(Ratio(kAttacker), -1);
    EXPECT_GT(Ratio("192.0.2.8"), 3.9);
}

TEST_F(LikelihoodTest, TheImmediateLimitIsASetting) {
    MakeLogWith("ScanPortsPerIpFlagNow", "9.5");
    TouchPorts(kAttacker, kHost, 10);
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|10"});
}

TEST_F(LikelihoodTest, AnImmediateLimitBelowTheScanLikeOneReportsHarmlessBinsToo) {
    MakeLogWith("ScanPortsPerIpFlagNow", "1.5");
    TouchPorts(kAttacker, kHost, 2);
    CloseBin();
    EXPECT_EQ(Events(), Texts{"7001: HostOrPortScan|192.0.2.7|6|0|1|2"});
}

TEST_F(LikelihoodTest, TheLengthOfTheBinIsASetting) {
    MakeLogWith("ScanTimeBinMillisec", "500");
    VelmCore::SetTickCount(501);
    Maintain();
    TouchPorts(kAttacker, kHost, 65);
    VelmCore::AdvanceTickCount(500);
    EXPECT_TRUE(Maintain());
    VelmCore::AdvanceTickCount(1);
    EXPECT_FALSE(Maintain());
    EXPECT_EQ(Events().size(), 1u);
}

}  // namespace
