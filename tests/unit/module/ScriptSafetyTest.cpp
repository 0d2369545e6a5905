// Calls that break their contract, and Lua errors raised within a call: no memory error, no leak,
// and a log that goes on working.

#include <cstdlib>

#include "ScriptFixture.h"

namespace {

// An entry of nothing but zero bytes.
constexpr const char* kZeroLine =
    "1970/01/01, 00:00:00, f, 0, 1, , , , , , , , , , , 0, 0, 0, 0, -1, , 0, 0, 0, 0, , , , "
    "0, 0, 0\n";

class ScriptSafetyTest : public ScriptTest {
protected:
    using ScriptTest::ScriptTest;

    void ExpectUsable() {
        EXPECT_EQ(Peer().configUtils, nullptr);
        dom.ConditionRaise("app.configUpdated");
        Peer().FreeLists();
        Peer().lastInterfaceIndex = -1;
        const size_t before = File().size();
        EXPECT_EQ(Eval("log:WriteLogData(entry, '', empty, '')"), "true");
        EXPECT_GT(File().size(), before);
    }
    // Writes with a configuration whose table at `path` raises when its field `key` is read.
    std::string WriteWithTrap(const std::string& path, const std::string& key) {
        return Run(
            "config = {packetFilterLog = {ignoreIpList = {items = '1.1.1.1'}},"
            "  trafficAnalysisConfiguration = {destIpList = {items = '2.2.2.2'},"
            "    whitelistIpList = {items = '3.3.3.3'}},"
            "  probeConfigurationMap = {{}}, driverInterfaceMap = {{id = 2, mac = 'A'}},"
            "  interfaceMap = {['41'] = {id = 5}}}"
            " local t = " +
            path + " t." + key +
            " = nil"
            " setmetatable(t, {__index = function(_, k)"
            "   if k == '" +
            key +
            "' then error('trap', 0) end end})"
            " log:WriteLogData(entry, '', config, '')");
    }
};

TEST_F(ScriptSafetyTest, EmptyEntryReadsAsZeroBytes) {
    EXPECT_EQ(Eval("log:WriteLogData('', '', empty, '')"), "true");
    EXPECT_EQ(File(), kZeroLine);
}

TEST_F(ScriptSafetyTest, MissingEntryReadsAsZeroBytes) {
    EXPECT_EQ(Eval("log:WriteLogData(nil, '', empty, '')"), "true");
    EXPECT_EQ(File(), kZeroLine);
}

TEST_F(ScriptSafetyTest, ShortEntryReadsAsIfItWentOnWithZeroBytes) {
    Run("log:WriteLogData(entry:sub(1, 4), '', empty, '')");
    EXPECT_EQ(File(),
              "2025/11/13, 21:35:29, f, 0, 1, , , , , , , , , , , 0, 0, 0, 0, -1, , 0, 0, 0, 0, , "
              ", , 0, 0, 1763069729000000\n");
}

TEST_F(ScriptSafetyTest, EntryOfAnyLengthIsRead) {
    for (int length = 0; length <= 180; ++length) {
        EXPECT_EQ(
            Run("log:WriteLogData(entry:sub(1, " + std::to_string(length) + "), '', empty, '')"),
            "");
    }
}

TEST_F(ScriptSafetyTest, BytesBehindTheFixedPartAreNotPacketData) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 2;
    SetEntry("entry", entry);
    Run("log:WriteLogData(entry .. 'AB', '', empty, '')");
    EXPECT_NE(File().find(", 0000, , 1, "), std::string::npos);
}

TEST_F(ScriptSafetyTest, ClaimsBeyondTheBlocksReadAsZeroOrAreCut) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65535;
    entry.log_data_len = 65535;
    entry.log_note_len = 65535;
    entry.log_if_addr_len = 0xFFFFFFFF;
    SetEntry("entry", entry);
    Run("log:WriteLogData(entry, 'A', empty, 'B')");
    const std::string zeros(131068, '0');
    EXPECT_NE(File().find(", 41" + zeros + ", 42, 1, "), std::string::npos);
}

TEST_F(ScriptSafetyTest, PacketDataBeyondTheRoomIsCut) {
    velm_log_entry_s entry = TcpEntry();
    entry.log_dpi_flags = 0x02;
    entry.log_packet_data_len = 65535;
    SetEntry("entry", entry);
    Run("log:WriteLogData(entry, ('A'):rep(1000000), empty, '')");
    EXPECT_NE(File().find("4141" + std::string(358, '0') + ", , 1, "), std::string::npos);
}

struct Trap {
    const char* path;
    const char* key;
};

class TrapTest : public ScriptSafetyTest, public ::testing::WithParamInterface<Trap> {};

TEST_P(TrapTest, ErrorOfAMetamethodPassesThroughAndTheLogGoesOn) {
    EXPECT_EQ(WriteWithTrap(GetParam().path, GetParam().key), "trap");
    ExpectUsable();
}

INSTANTIATE_TEST_SUITE_P(
    EveryRead, TrapTest,
    ::testing::Values(Trap{"config", "driverInterfaceMap"},
                      Trap{"config.driverInterfaceMap[1]", "id"},
                      Trap{"config.driverInterfaceMap[1]", "mac"}, Trap{"config", "interfaceMap"},
                      Trap{"config.interfaceMap['41']", "id"}, Trap{"config", "packetFilterLog"},
                      Trap{"config.packetFilterLog", "size"},
                      Trap{"config.packetFilterLog", "cacheStaletime"},
                      Trap{"config.packetFilterLog", "ignoreIpList"},
                      Trap{"config.packetFilterLog.ignoreIpList", "items"},
                      Trap{"config.packetFilterLog.ignoreIpList", "name"},
                      Trap{"config", "trafficAnalysisConfiguration"},
                      Trap{"config.trafficAnalysisConfiguration", "destIpList"},
                      Trap{"config.trafficAnalysisConfiguration.whitelistIpList", "name"},
                      Trap{"config", "probeConfigurationMap"},
                      Trap{"config.probeConfigurationMap[1]", "blockAttackerSeconds"},
                      Trap{"config.probeConfigurationMap[1]", "notifyImmediately"}));

TEST_F(ScriptSafetyTest, ErrorValueThatIsNoTextPassesThrough) {
    EXPECT_EQ(Eval("select(2, pcall(log.WriteLogData, log, entry, '',"
                   " setmetatable({}, {__index = function() error({code = 5}) end}), '')).code"),
              "5");
    ExpectUsable();
}

TEST_F(ScriptSafetyTest, MetamethodThatYieldsRaises) {
    EXPECT_EQ(Eval("coroutine.wrap(function() local ok, text = pcall(log.WriteLogData, log, entry,"
                   " '', setmetatable({}, {__index = function() coroutine.yield() end}), '')"
                   " return ok, text end)()"),
              "false attempt to yield across a C-call boundary");
    ExpectUsable();
}

// The entry's metamethod takes its own key out of the map that is being walked and makes the map
// rebuild itself: the walk cannot go on.
constexpr const char* kDisturbWalk =
    " local function disturb(map, key) setmetatable(map[key], {__index = function()"
    "   map[key] = nil for i = 1, 1000 do map['x' .. i] = {} end"
    "   for i = 1, 1000 do map['x' .. i] = nil end"
    "   for i = 1, 4000 do map[i + 0.5] = {} end collectgarbage() end}) end ";

TEST_F(ScriptSafetyTest, DriverMapDisturbedDuringItsWalkRaises) {
    const std::string error =
        Run(std::string(kDisturbWalk) +
            "config = {driverInterfaceMap = {eth = {}}} disturb(config.driverInterfaceMap, 'eth')"
            " log:WriteLogData(entry, '', config, '')");
    EXPECT_NE(error.find("invalid key to 'next'"), std::string::npos) << error;
    ExpectUsable();
}

TEST_F(ScriptSafetyTest, ProbeMapDisturbedDuringItsWalkRaises) {
    const std::string error =
        Run(std::string(kDisturbWalk) +
            "config = {packetFilterLog = {}, trafficAnalysisConfiguration = {},"
            " probeConfigurationMap = {x = {}}} disturb(config.probeConfigurationMap, 'x')"
            " log:WriteLogData(entry, '', config, '')");
    EXPECT_NE(error.find("invalid key to 'next'"), std::string::npos) << error;
    ExpectUsable();
}

// A metamethod that calls the log again, once, when `key` is read from the configuration.
std::string CallAgainAt(const std::string& key) {
    return "local inside = false"
           " config = setmetatable({}, {__index = function(_, key)"
           "   if key == '" +
           key +
           "' and not inside then inside = true"
           "     log:WriteLogData(('x'):rep(180), '', empty, '') end"
           "   return empty[key] end})"
           " log:WriteLogData(entry, '', config, '')";
}

TEST_F(ScriptSafetyTest, CallWithinACallLeavesTheOuterOneWhole) {
    EXPECT_EQ(Run(CallAgainAt("probeConfigurationMap")), "");
    EXPECT_NE(File().find("10.0.0.5, 51000, 10.0.0.9, 443"), std::string::npos);
    ExpectUsable();
}

TEST_F(ScriptSafetyTest, CallWithinTheFirstReadLeavesTheOuterOneWithItsConfiguration) {
    EXPECT_EQ(Run(CallAgainAt("packetFilterLog")), "");
    EXPECT_NE(File().find("10.0.0.5, 51000, 10.0.0.9, 443"), std::string::npos);
    ExpectUsable();
}

TEST_F(ScriptSafetyTest, DestructorOfTheClassLeavesOtherValuesAlone) {
    for (const char* value : {"dom", "io.stdout", "{}", "nil", "5"})
        Run(std::string("getmetatable(log).__gc(") + value + ")");
    EXPECT_EQ(Run("io.stdout:write('') other = SLB.ostrel.LogData(dom)"), "");
}

TEST_F(ScriptSafetyTest, ClassTreeThatIsACircleEnds) {
    MakeClass("Test.Circle", "Test.Circle");
    SetObject("circle", "Test.Circle", &dom, false);
    EXPECT_EQ(Run("SLB.ostrel.LogData(circle)").substr(0, 9), "script:1:");
}

TEST_F(ScriptSafetyTest, NegativeProbeTypeIsALuaError) {
    const std::string error =
        Run("log:WriteLogData(entry, '', {packetFilterLog = {}, trafficAnalysisConfiguration = {},"
            " probeConfigurationMap = {[-1] = {}}}, '')");
    EXPECT_EQ(error.substr(0, 21), "script:1: bitset::set") << error;
    ExpectUsable();
}

TEST_F(ScriptSafetyTest, FailingCallsInALoopNeverOverflowTheStack) {
    EXPECT_EQ(Run("for i = 1, 200000 do log:WriteLogData(entry, '', {}, '') end"), "");
    ExpectUsable();
}

// A Lua state whose memory runs out after a number of allocations.
class OutOfMemoryTest : public ScriptSafetyTest {
protected:
    OutOfMemoryTest() : ScriptSafetyTest(Allocate, &s_Left) {}
    ~OutOfMemoryTest() override { s_Left = -1; }

    // Shrinking a block never fails: Lua relies on that.
    static void* Allocate(void* context, void* block, size_t oldSize, size_t size) {
        int& left = *static_cast<int*>(context);
        if (size == 0) {
            free(block);
            return nullptr;
        }
        const bool grows = block == nullptr || size > oldSize;
        if (grows && left == 0) return nullptr;
        if (grows && left > 0) --left;
        return realloc(block, size);
    }
    static int s_Left;  // -1: without an end
};
int OutOfMemoryTest::s_Left = -1;

TEST_F(OutOfMemoryTest, MemoryThatRunsOutAnywhereInACallIsALuaErrorAndNothingMore) {
    Run("config = setmetatable({}, {__index = function(_, key)"
        "  return setmetatable({}, {__index = function() return key .. 'x' .. #key end}) end})");
    ASSERT_EQ(luaL_loadstring(L, "log:WriteLogData(entry, '', config, '')"), LUA_OK);
    lua_setglobal(L, "call");
    int failures = 0;
    for (int allocations = 0; allocations < 60; ++allocations) {
        dom.ConditionRaise("app.configUpdated");
        Peer().lastInterfaceIndex = -1;
        lua_getglobal(L, "call");
        s_Left = allocations;
        const int status = lua_pcall(L, 0, 0, 0);
        s_Left = -1;
        if (status != LUA_OK) {
            ASSERT_STREQ(lua_tostring(L, -1), "not enough memory");
            ++failures;
        }
        lua_settop(L, 0);
        Peer().FreeLists();
        ASSERT_EQ(Peer().configUtils, nullptr) << allocations;
    }
    EXPECT_GT(failures, 5);
    ExpectUsable();
}

TEST_F(OutOfMemoryTest, MemoryThatRunsOutInARetrievalIsALuaError) {
    directory.Plant("fw", "2025/11/13, 21:35:29, f, a, 1000000\n");
    ASSERT_EQ(luaL_loadstring(L, "return log:GetLogData(0, 0, 0, 1)"), LUA_OK);
    lua_setglobal(L, "call");
    for (int allocations = 0; allocations < 8; ++allocations) {
        lua_gc(L, LUA_GCCOLLECT, 0);
        lua_getglobal(L, "call");
        s_Left = allocations;
        const int status = lua_pcall(L, 0, 1, 0);
        s_Left = -1;
        EXPECT_STREQ(lua_tostring(L, -1),
                     status == LUA_OK ? "f, a, 1000000\n" : "not enough memory");
        if (allocations == 0) {
            EXPECT_NE(status, LUA_OK);
        }
        lua_settop(L, 0);
    }
    EXPECT_EQ(Eval("log:GetLogData(0, 0, 0, 1)"), "f, a, 1000000\n");
}

}  // namespace
