// The reader of the configuration table, and what it leaves on the Lua stack.

#include "LogDataFixture.h"

namespace {

using OSTREL::IpSpaceList;

class ConfigUtilsTest : public ::testing::Test {
protected:
    ~ConfigUtilsTest() override {
        delete ignore;
        delete dest;
        delete whitelist;
    }

    void Table(const std::string& expression) { table.Set(expression); }
    OSTREL::ConfigUtils Utils() { return {table.State(), ConfigurationTable::kIndex}; }
    bool ReadLogSettings() {
        return Utils().getAgentConfigurationPacketFilterLog(size, keep, ignore, cacheSize,
                                                            cacheLifetime, cacheStaletime);
    }
    bool ReadAnalysis() {
        return Utils().getAgentConfigurationTrafficAnalysis(dest, whitelist, block, enabled,
                                                            notify);
    }
    Texts Events() { return TakeEvents(dom); }

    VelmCore::CDom dom;
    ConfigurationTable table;
    int id = 55;
    int size = 55;
    int keep = 55;
    unsigned int cacheSize = 55;
    int cacheLifetime = 55;
    int cacheStaletime = 55;
    IpSpaceList* ignore = nullptr;
    IpSpaceList* dest = nullptr;
    IpSpaceList* whitelist = nullptr;
    int block[5] = {1, 2, 3, 4, 5};
    std::bitset<5> enabled{31};
    std::bitset<5> notify{31};
};

TEST_F(ConfigUtilsTest, InterfaceIdByHardwareAddress) {
    Table("{interfaceMap = {['00:0c'] = {id = 12.9}}}");
    EXPECT_TRUE(Utils().getInterfaceConfigID("00:0c", id));
    EXPECT_EQ(id, 12);
    EXPECT_EQ(table.Leftovers(), 0);
}

TEST_F(ConfigUtilsTest, InterfaceWithoutAnIdReadsAsZero) {
    Table("{interfaceMap = {['00:0c'] = {}}}");
    EXPECT_TRUE(Utils().getInterfaceConfigID("00:0c", id));
    EXPECT_EQ(id, 0);
}

TEST_F(ConfigUtilsTest, UnknownHardwareAddressLeavesTwoValues) {
    Table("{interfaceMap = {}}");
    TraceScope trace;
    EXPECT_FALSE(Utils().getInterfaceConfigID("00:0c", id));
    EXPECT_EQ(id, 55);
    EXPECT_EQ(table.Leftovers(), 2);
    EXPECT_TRUE(trace.Has("Could not look up interface given mac 00:0c"));
}

TEST_F(ConfigUtilsTest, MissingInterfaceMapLeavesOneValue) {
    TraceScope trace;
    EXPECT_FALSE(Utils().getInterfaceConfigID("00:0c", id));
    EXPECT_EQ(table.Leftovers(), 1);
    EXPECT_TRUE(trace.Has("Could not get interface map"));
}

TEST_F(ConfigUtilsTest, ConfigurationThatIsNoTableLeavesNothing) {
    Table("5");
    TraceScope trace;
    EXPECT_FALSE(Utils().getInterfaceConfigID("00:0c", id));
    EXPECT_EQ(table.Leftovers(), 0);
    EXPECT_TRUE(trace.Has("Could not get config map"));
    EXPECT_FALSE(ReadLogSettings());
    EXPECT_FALSE(ReadAnalysis());
    EXPECT_EQ(table.Leftovers(), 0);
}

TEST_F(ConfigUtilsTest, InterfaceIdByDriverIndexLeavesKeyAndMap) {
    Table(R"({driverInterfaceMap = {{id = 4, mac = "\0\171"}},
              interfaceMap = {["00:ab"] = {id = 40}}})");
    EXPECT_TRUE(Utils().getInterfaceID(4, id));
    EXPECT_EQ(id, 40);
    EXPECT_EQ(table.Leftovers(), 2);
}

TEST_F(ConfigUtilsTest, DriverIndexIsTruncated) {
    Table("{driverInterfaceMap = {{id = 3.9, mac = 'A'}}, interfaceMap = {['41'] = {id = 7}}}");
    EXPECT_TRUE(Utils().getInterfaceID(3, id));
    EXPECT_EQ(id, 7);
}

TEST_F(ConfigUtilsTest, KeysOfTheDriverMapDoNotMatterAndOtherValuesAreSkipped) {
    Table(R"({driverInterfaceMap = {[1] = 5, [2] = "x", eth0 = {id = 4, mac = "A"}},
              interfaceMap = {["41"] = {id = 7}}})");
    EXPECT_TRUE(Utils().getInterfaceID(4, id));
    EXPECT_EQ(id, 7);
}

TEST_F(ConfigUtilsTest, UnknownDriverIndexLeavesTheMapWithoutATrace) {
    Table("{driverInterfaceMap = {{id = 4, mac = 'A'}}}");
    TraceScope trace;
    EXPECT_FALSE(Utils().getInterfaceID(5, id));
    EXPECT_EQ(id, 55);
    EXPECT_EQ(table.Leftovers(), 1);
    EXPECT_EQ(trace.Take(), Texts());
}

TEST_F(ConfigUtilsTest, MissingDriverMapIsTraced) {
    TraceScope trace;
    EXPECT_FALSE(Utils().getInterfaceID(5, id));
    EXPECT_EQ(table.Leftovers(), 1);
    EXPECT_TRUE(trace.Has("Could not get driverInterfaceMap"));
}

TEST_F(ConfigUtilsTest, FirstMatchDecidesEvenIfItIsNotConfigured) {
    Table(
        "{driverInterfaceMap = {{id = 4, mac = 'A'}, {id = 4, mac = 'B'}},"
        " interfaceMap = {['42'] = {id = 7}}}");
    EXPECT_FALSE(Utils().getInterfaceID(4, id));
    EXPECT_EQ(id, 55);
}

TEST_F(ConfigUtilsTest, LogSettingsAreRead) {
    Table(
        "{packetFilterLog = {size = 1, keep = 2, cacheSize = 3, cacheLifetime = 4,"
        " cacheStaletime = 5, other = 6}}");
    EXPECT_TRUE(ReadLogSettings());
    EXPECT_EQ(size, 1);
    EXPECT_EQ(keep, 2);
    EXPECT_EQ(cacheSize, 3u);
    EXPECT_EQ(cacheLifetime, 4);
    EXPECT_EQ(cacheStaletime, 5);
    EXPECT_EQ(ignore, nullptr);
    EXPECT_EQ(table.Leftovers(), 0);
}

TEST_F(ConfigUtilsTest, MissingLogSettingsReadAsZero) {
    Table("{packetFilterLog = {}}");
    EXPECT_TRUE(ReadLogSettings());
    EXPECT_EQ(size, 0);
    EXPECT_EQ(keep, 0);
    EXPECT_EQ(cacheSize, 0u);
    EXPECT_EQ(cacheLifetime, 0);
    EXPECT_EQ(cacheStaletime, 0);
}

TEST_F(ConfigUtilsTest, NumbersInTextsAreNumbers) {
    Table("{packetFilterLog = {size = '12', keep = 'x'}}");
    EXPECT_TRUE(ReadLogSettings());
    EXPECT_EQ(size, 12);
    EXPECT_EQ(keep, 0);
}

TEST_F(ConfigUtilsTest, MissingLogTableFailsAndLeavesTheArguments) {
    Table("{packetFilterLog = 5}");
    TraceScope trace;
    EXPECT_FALSE(ReadLogSettings());
    EXPECT_EQ(size, 55);
    EXPECT_EQ(cacheStaletime, 55);
    EXPECT_EQ(table.Leftovers(), 1);
    EXPECT_TRUE(trace.Has("Could not get packet filter log map"));
}

TEST_F(ConfigUtilsTest, IgnoreListIsParsed) {
    Table("{packetFilterLog = {ignoreIpList = {items = '1.1.1.1 2.2.2.2', name = 'n'}}}");
    EXPECT_TRUE(ReadLogSettings());
    ASSERT_NE(ignore, nullptr);
    EXPECT_EQ(ignore->size(), 2u);
    EXPECT_EQ(table.Leftovers(), 0);
}

TEST_F(ConfigUtilsTest, IgnoreListWithoutItemsIsEmptyAndNotNull) {
    Table("{packetFilterLog = {ignoreIpList = {}}}");
    EXPECT_TRUE(ReadLogSettings());
    ASSERT_NE(ignore, nullptr);
    EXPECT_TRUE(ignore->empty());
}

TEST_F(ConfigUtilsTest, BadTokenVoidsTheIgnoreListWithAnEvent) {
    Table("{packetFilterLog = {ignoreIpList = {items = '1.1.1.1, /8', name = 'Ignored'}}}");
    EXPECT_TRUE(ReadLogSettings());
    EXPECT_EQ(ignore, nullptr);
    EXPECT_EQ(Events(), Texts({"2019: /8|Ignored|${ipList}"}));
    EXPECT_EQ(table.Leftovers(), 0);
}

TEST_F(ConfigUtilsTest, AnalysisSettingsAreRead) {
    Table(R"({trafficAnalysisConfiguration = {destIpList = {items = "1.1.1.1"},
                  whitelistIpList = {items = "2.2.2.2 3.3.3.3"}},
              probeConfigurationMap = {[0] = {blockAttackerSeconds = 10},
                  [1] = {notifyImmediately = true},
                  [4] = {blockAttackerSeconds = 40, notifyImmediately = false}}})");
    EXPECT_TRUE(ReadAnalysis());
    EXPECT_EQ(dest->size(), 1u);
    EXPECT_EQ(whitelist->size(), 2u);
    EXPECT_EQ(enabled, std::bitset<5>(0x13));
    EXPECT_EQ(notify, std::bitset<5>(0x02));
    EXPECT_EQ(block[0], 10);
    EXPECT_EQ(block[1], 0);
    EXPECT_EQ(block[4], 40);
    EXPECT_EQ(table.Leftovers(), 0);
}

TEST_F(ConfigUtilsTest, ProbeTypeThatIsGoneLeavesItsNumberButForTheFirst) {
    Table("{trafficAnalysisConfiguration = {}, probeConfigurationMap = {}}");
    EXPECT_TRUE(ReadAnalysis());
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[1], 2);
    EXPECT_EQ(block[4], 5);
    EXPECT_TRUE(enabled.none());
    EXPECT_TRUE(notify.none());
}

TEST_F(ConfigUtilsTest, BitsAreClearedBeforeAnyTest) {
    Table("5");
    EXPECT_FALSE(ReadAnalysis());
    EXPECT_EQ(block[0], 0);
    EXPECT_TRUE(enabled.none());
    EXPECT_TRUE(notify.none());
}

TEST_F(ConfigUtilsTest, MissingAnalysisTableLeavesTheLists) {
    IpSpaceList former;
    dest = whitelist = &former;
    TraceScope trace;
    EXPECT_FALSE(ReadAnalysis());
    EXPECT_EQ(dest, &former);
    EXPECT_EQ(whitelist, &former);
    dest = whitelist = nullptr;
    EXPECT_EQ(table.Leftovers(), 1);
    EXPECT_TRUE(trace.Has("Could not get trafficAnalysisConfiguration map"));
}

TEST_F(ConfigUtilsTest, MissingProbeMapFailsWithTheListsReplaced) {
    Table("{trafficAnalysisConfiguration = {destIpList = {items = '1.1.1.1'}}}");
    TraceScope trace;
    EXPECT_FALSE(ReadAnalysis());
    EXPECT_NE(dest, nullptr);
    EXPECT_EQ(whitelist, nullptr);
    EXPECT_EQ(table.Leftovers(), 1);
    EXPECT_TRUE(trace.Has("Could not get probeConfigurationMap"));
}

TEST_F(ConfigUtilsTest, BadTokenVoidsTheAnalysisLists) {
    Table(R"({trafficAnalysisConfiguration = {destIpList = {items = "/8", name = "d"},
                  whitelistIpList = {items = "1.1.1.1/99", name = "w"}},
              probeConfigurationMap = {}})");
    EXPECT_TRUE(ReadAnalysis());
    EXPECT_EQ(dest, nullptr);
    EXPECT_EQ(whitelist, nullptr);
    EXPECT_EQ(Events(), Texts({"2019: /8|d|${ipList}", "2019: 1.1.1.1/99|w|${ipList}"}));
}

TEST_F(ConfigUtilsTest, ProbeTypeAboveFourAndValuesThatAreNoTablesAreSkipped) {
    Table(
        "{trafficAnalysisConfiguration = {},"
        " probeConfigurationMap = {[7] = {}, [5] = {}, [2] = true, [3] = {}}}");
    EXPECT_TRUE(ReadAnalysis());
    EXPECT_EQ(enabled, std::bitset<5>(0x08));
}

TEST_F(ConfigUtilsTest, NegativeProbeTypeIsOutOfRange) {
    Table("{trafficAnalysisConfiguration = {}, probeConfigurationMap = {[-1] = {}}}");
    try {
        ReadAnalysis();
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_EQ(std::string(error.what()).substr(0, 11), "bitset::set");
    }
}

TEST_F(ConfigUtilsTest, NegativeProbeTypeWithoutATableIsSkipped) {
    Table("{trafficAnalysisConfiguration = {}, probeConfigurationMap = {[-1] = 5}}");
    EXPECT_TRUE(ReadAnalysis());
}

TEST_F(ConfigUtilsTest, ListNameIsUtf8) {
    Table("{packetFilterLog = {ignoreIpList = {items = '/8', name = 'B\\195\\188ro'}}}");
    ReadLogSettings();
    EXPECT_EQ(Events(), Texts({"2019: /8|B\xC3\xBCro|${ipList}"}));
}

TEST_F(ConfigUtilsTest, FailuresWithinOneCallNeverOverflowTheStack) {
    OSTREL::ConfigUtils utils = Utils();
    for (int i = 0; i < 2000000; ++i)
        ASSERT_FALSE(utils.getInterfaceConfigID("00:0c", id));
}

TEST_F(ConfigUtilsTest, LookupsWithinOneCallNeverOverflowTheStack) {
    Table("{driverInterfaceMap = {{id = 4, mac = 'A'}}, interfaceMap = {['41'] = {id = 7}}}");
    OSTREL::ConfigUtils utils = Utils();
    for (int i = 0; i < 600000; ++i)
        ASSERT_TRUE(utils.getInterfaceID(4, id));
}

}  // namespace
