// Numbers from the agent's settings, and what a new log makes of them.

#include "LogDataFixture.h"
#include "Settings.h"

namespace {

class SettingsTest : public ::testing::Test {
protected:
    unsigned int Long(const char* text) {
        if (text != nullptr) dom.SetText("key", text);
        unsigned int value = 77;
        OSTREL::GetLongSetting(dom, "key", &value, 42);
        return value;
    }
    double Double(const char* text) {
        if (text != nullptr) dom.SetText("key", text);
        double value = 77;
        OSTREL::GetDoubleSetting(dom, "key", &value, 4.5);
        return value;
    }

    VelmCore::CDom dom;
};

TEST_F(SettingsTest, MissingNumberGivesTheDefault) {
    EXPECT_EQ(Long(nullptr), 42u);
    EXPECT_EQ(Double(nullptr), 4.5);
}

TEST_F(SettingsTest, EmptyTextGivesTheDefault) {
    EXPECT_EQ(Long(""), 42u);
    EXPECT_EQ(Double(""), 4.5);
}

TEST_F(SettingsTest, NumberIsRead) {
    EXPECT_EQ(Long("10"), 10u);
    EXPECT_EQ(Double("0.25"), 0.25);
}

TEST_F(SettingsTest, BaseIsTen) {
    EXPECT_EQ(Long("010"), 10u);
}

TEST_F(SettingsTest, TextThatIsNoNumberDoesNotBringTheDefaultBack) {
    EXPECT_EQ(Long("abc"), 0u);
    EXPECT_EQ(Double("abc"), 0.0);
}

TEST_F(SettingsTest, ThereIsNoRangeCheck) {
    EXPECT_EQ(Long("-1"), 4294967295u);
    EXPECT_EQ(Double("-3.5"), -3.5);
}

class AnalysisSettingsTest : public ::testing::Test {
protected:
    void Set(const char* name, const char* value) {
        dom.SetText(std::string("plg.ostrel.analysis.") + name, value);
    }

    VelmCore::CDom dom;
};

TEST_F(AnalysisSettingsTest, Defaults) {
    OSTREL::LogData log(dom);
    OSTREL::LogDataPeer peer(log);
    EXPECT_DOUBLE_EQ(peer.likelihoodFactorY0, 0.25);
    EXPECT_DOUBLE_EQ(peer.likelihoodFactorY1, 4.0);
    EXPECT_EQ(peer.scanningIpsRetentionMsec, 300000u);
    EXPECT_EQ(peer.timeBinMsec, 10000u);
    EXPECT_EQ(peer.scanIpsPerPort, 3.0);
    EXPECT_EQ(peer.scanPortsPerIp, 3.0);
    EXPECT_EQ(peer.scanPortsPerIpFlagNow, 64.0);
    EXPECT_EQ(peer.scanLikelihoodRatioFloor, 0.01);
    EXPECT_EQ(peer.scanLikelihoodRatioCeiling, 99.0);
    EXPECT_TRUE(peer.ignoreTcpFlags.empty());
}

TEST_F(AnalysisSettingsTest, EachHasItsKey) {
    Set("ScanPrY0H0", "0.9");
    Set("ScanPrY0H1", "0.1");
    Set("ScanningIpsRetentionMsec", "1");
    Set("ScanTimeBinMillisec", "2");
    Set("ScanIpsPerPort", "3.5");
    Set("ScanPortsPerIp", "4.5");
    Set("ScanPortsPerIpFlagNow", "5.5");
    Set("ScanLikelihoodRatioFloor", "6.5");
    Set("ScanLikelihoodRatioCeiling", "7.5");
    OSTREL::LogData log(dom);
    OSTREL::LogDataPeer peer(log);
    EXPECT_DOUBLE_EQ(peer.likelihoodFactorY0, 0.1 / 0.9);
    EXPECT_DOUBLE_EQ(peer.likelihoodFactorY1, 0.9 / (1 - 0.9));
    EXPECT_EQ(peer.scanningIpsRetentionMsec, 1u);
    EXPECT_EQ(peer.timeBinMsec, 2u);
    EXPECT_EQ(peer.scanIpsPerPort, 3.5);
    EXPECT_EQ(peer.scanPortsPerIp, 4.5);
    EXPECT_EQ(peer.scanPortsPerIpFlagNow, 5.5);
    EXPECT_EQ(peer.scanLikelihoodRatioFloor, 6.5);
    EXPECT_EQ(peer.scanLikelihoodRatioCeiling, 7.5);
}

class IgnoreTcpFlagsTest : public AnalysisSettingsTest {
protected:
    std::set<uint8_t> Flags(const char* text) {
        VelmCore::TakeLog();
        Set("IgnoreTcpFlags", text);
        OSTREL::LogData log(dom);
        return OSTREL::LogDataPeer(log).ignoreTcpFlags;
    }
};

TEST_F(IgnoreTcpFlagsTest, OutOfRangeWarnsAndNoNumberIsSilent) {
    EXPECT_EQ(Flags("0x12,300;abc"), std::set<uint8_t>({0x12}));
    EXPECT_EQ(TakeLogLines(),
              Texts({"warning: IgnoreTcpFlags value 300 is out of range - ignoring it."}));
}

TEST_F(IgnoreTcpFlagsTest, NegativeValueIsOutOfRange) {
    EXPECT_EQ(Flags("-1"), std::set<uint8_t>());
    EXPECT_EQ(TakeLogLines(),
              Texts({"warning: IgnoreTcpFlags value -1 is out of range - ignoring it."}));
}

TEST_F(IgnoreTcpFlagsTest, HexadecimalAndDecimalAreTheSameValue) {
    EXPECT_EQ(Flags("0x12 18"), std::set<uint8_t>({18}));
    EXPECT_EQ(Flags("022"), std::set<uint8_t>({18}));
}

TEST_F(IgnoreTcpFlagsTest, CommaSemicolonBlankAndTabSeparate) {
    EXPECT_EQ(Flags("1,2;3 4\t5"), std::set<uint8_t>({1, 2, 3, 4, 5}));
}

TEST_F(IgnoreTcpFlagsTest, BoundsBelongToTheRange) {
    EXPECT_EQ(Flags("0,255,256"), std::set<uint8_t>({0, 255}));
}

TEST_F(IgnoreTcpFlagsTest, TrailingCharactersMakeATokenNoNumber) {
    EXPECT_EQ(Flags("12x"), std::set<uint8_t>());
    EXPECT_EQ(TakeLogLines(), Texts());
}

}  // namespace
