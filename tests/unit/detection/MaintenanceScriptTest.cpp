#include <new>

#include "DetectionFixture.h"
#include "LogDataScript.h"
#include "velm/ScriptObject.h"

// log:CacheMaintenance(config), as scripts call it.
namespace {

class MaintenanceScriptTest : public ::testing::Test {
protected:
    MaintenanceScriptTest() : L(luaL_newstate()) {
        VelmCore::SetTickCount(1000);
        luaL_openlibs(L);
        OSTREL::RegisterLogData(L);
        PushDom();
        lua_setglobal(L, "dom");
        char error[64];
        m_Driver = kdi_open_source("null", nullptr, error, sizeof error);
        PushDriver();
        lua_setglobal(L, "driver");
        lua_register(L, "passBin", [](lua_State*) {
            VelmCore::AdvanceTickCount(10001);
            return 0;
        });
        EXPECT_EQ(Run("log = SLB.ostrel.LogData(dom) log:SetKdi(driver) "
                      "log:SetLogFilePath('/nonexistent')"),
                  "");
        EXPECT_EQ(Run("config = {packetFilterLog = {cacheSize = 1}, "
                      "trafficAnalysisConfiguration = {}, platformInterfaceMap = {}, "
                      "probeConfigurationMap = {{blockAttackerSeconds = 60}}}"),
                  "");
    }
    ~MaintenanceScriptTest() override {
        lua_close(L);
        kdi_close(m_Driver);
        VelmCore::UseSystemClock();
    }

    // Runs a piece of Lua. Returns the error, or "".
    std::string Run(const std::string& code) {
        lua_settop(L, 0);
        const int failure = luaL_loadbuffer(L, code.data(), code.size(), "=test");
        return failure || lua_pcall(L, 0, 1, 0) ? lua_tostring(L, -1) : "";
    }
    // Gives the log entries of a scan of `count` ports.
    void Scan(const char* source, int count) {
        for (int port = 1; port <= count; ++port) {
            velm_log_entry_s entry = Syn(source, kHost, static_cast<uint16_t>(port));
            entry.log_dpi_flags = 0x40;  // for analysis only
            lua_pushlstring(L, reinterpret_cast<const char*>(&entry), sizeof entry);
            lua_setglobal(L, "entry");
            EXPECT_EQ(Run("log:WriteLogData(entry, nil, config, nil)"), "");
        }
    }
    // The result of CacheMaintenance when the present bin is over.
    std::string CloseBin(const std::string& table = "config") {
        VelmCore::AdvanceTickCount(10001);
        const std::string error = Run("return tostring(log:CacheMaintenance(" + table + "))");
        return error.empty() ? lua_tostring(L, -1) : "error: " + error;
    }

    lua_State* L;
    VelmCore::CDom dom;

private:
    void PushDom() {
        void* memory = lua_newuserdata(L, sizeof(VelmCore::ScriptObject));
        new (memory) VelmCore::ScriptObject{&dom, false};
        luaL_newmetatable(L, "SLB.Dom");
        lua_pushliteral(L, "SLB.Dom");
        lua_setfield(L, -2, "__class");
        lua_setmetatable(L, -2);
    }
    void PushDriver() {
        *static_cast<kdi_handle_t*>(lua_newuserdata(L, sizeof(kdi_handle_t))) = m_Driver;
        luaL_newmetatable(L, "kdi_handle_t*");
        lua_setmetatable(L, -2);
    }

    kdi_handle_t m_Driver;
};

TEST_F(MaintenanceScriptTest, TheObjectIsCheckedBeforeTheTable) {
    EXPECT_EQ(Run("SLB.ostrel.LogData.CacheMaintenance(1, 2)"),
              "test:1: bad argument #1 to 'CacheMaintenance' (LogData object expected)");
}

TEST_F(MaintenanceScriptTest, TheConfigurationMustBeATable) {
    for (const char* call :
         {"log:CacheMaintenance()", "log:CacheMaintenance('x')", "log:CacheMaintenance(dom)"}) {
        EXPECT_EQ(Run(call), "test:1: bad argument #1 to 'CacheMaintenance' (lua table expected)")
            << call;
    }
    EXPECT_EQ(Run("SLB.ostrel.LogData.CacheMaintenance(log, 2)"),
              "test:1: bad argument #2 to 'CacheMaintenance' (lua table expected)");
}

TEST_F(MaintenanceScriptTest, TheResultTellsWhetherTheBinHoldsFlows) {
    EXPECT_EQ(CloseBin(), "false");
    Scan(kAttacker, 1);
    EXPECT_EQ(Run("result = log:CacheMaintenance(config) assert(result == true)"), "");
    EXPECT_EQ(CloseBin(), "false");
}

TEST_F(MaintenanceScriptTest, AScanIsReportedAndBlockedWithinTheCall) {
    Scan(kAttacker, 65);
    CloseBin();
    EXPECT_EQ(TakeEvents(dom), Texts{"7001: HostOrPortScan|192.0.2.7|6|60|1|65"});
}

TEST_F(MaintenanceScriptTest, AMetamethodThatRaisesEndsTheCallAndLeavesTheLogUsable) {
    Scan(kAttacker, 65);
    Scan("192.0.2.8", 65);
    const std::string raising =
        "setmetatable({}, {__index = function(_, key) error('no ' .. key, 0) end})";
    EXPECT_EQ(CloseBin(raising), "error: no platformInterfaceMap");
    EXPECT_EQ(TakeEvents(dom), Texts{});
    // The host at which it ended is remembered; the others are judged at the next call.
    EXPECT_EQ(CloseBin(), "false");
    EXPECT_EQ(TakeEvents(dom), Texts{"7001: HostOrPortScan|192.0.2.8|6|60|1|65"});
}

// The driver's entries may well be handed over, and bins closed, while the table is read.
TEST_F(MaintenanceScriptTest, AMetamethodMayCloseTheBinThatIsBeingClosed) {
    Scan(kAttacker, 65);
    Scan("192.0.2.8", 65);
    EXPECT_EQ(CloseBin("setmetatable({}, {__index = function(_, key) "
                       "log:CacheMaintenance(config) return config[key] end})"),
              "false");
    EXPECT_EQ(TakeEvents(dom).size(), 2u);
    EXPECT_EQ(CloseBin(), "false");
}

TEST_F(MaintenanceScriptTest, AMetamethodMayDecideTheCandidateThatIsBeingReported) {
    for (int bin = 0; bin < 4; ++bin) {
        Scan(kAttacker, 4);
        if (bin < 3) CloseBin();
    }
    EXPECT_EQ(CloseBin("setmetatable({}, {__index = function(_, key) "
                       "for i = 1, 40 do passBin() log:CacheMaintenance(config) end "
                       "return config[key] end})"),
              "false");
    EXPECT_EQ(TakeEvents(dom).size(), 1u);
    EXPECT_EQ(CloseBin(), "false");
}

TEST_F(MaintenanceScriptTest, AnErrorThatIsNoTextIsHandedOnAsItIs) {
    Scan(kAttacker, 65);
    VelmCore::AdvanceTickCount(10001);
    EXPECT_EQ(Run("local thing = {} local bad = setmetatable({}, {__index = function() "
                  "error(thing) end}) local ok, what = pcall(log.CacheMaintenance, log, bad) "
                  "assert(not ok and what == thing)"),
              "");
}

TEST_F(MaintenanceScriptTest, AnErrorInTheMiddleOfTheTableGoesTheSameWay) {
    Scan(kAttacker, 65);
    EXPECT_EQ(CloseBin("{platformInterfaceMap = setmetatable({}, {__index = function(_, key) "
                       "error('no ' .. key, 0) end})}"),
              "error: no 192.0.2.7");
    EXPECT_EQ(CloseBin(), "false");
}

}  // namespace
