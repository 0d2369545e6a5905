// The module's classes as scripts see them, and what they say to wrong arguments.

#include "ScriptFixture.h"

namespace {

constexpr const char* kNoLog = "LogData object expected";
constexpr const char* kNoObject =
    "Expected non-null object(SLB.ostrel.LogData) as first argument to method call";

class ScriptClassTest : public ScriptTest {
protected:
    // The error of `SLB.ostrel.LogData.<method>(<arguments>)`.
    std::string Error(const std::string& method, const std::string& arguments) {
        return Run("SLB.ostrel.LogData." + method + "(" + arguments + ")");
    }
    static std::string BadArgument(int number, const std::string& method, const std::string& word) {
        return "script:1: bad argument #" + std::to_string(number) + " to '" + method + "' (" +
               word + ")";
    }
    // A block of the driver binding, with this word as its handle.
    void SetHandle(const char* name, void* word) {
        *static_cast<void**>(lua_newuserdata(L, sizeof(void*))) = word;
        luaL_newmetatable(L, "kdi_handle_t*");
        lua_setmetatable(L, -2);
        lua_setglobal(L, name);
    }
};

const char* const kLogMethods[] = {"WriteLogData", "GetLogData"};
const char* const kOtherMethods[] = {
    "SetLogFileName",     "GetLogFileName",    "SetLogFilePath",       "GetLogFilePath",
    "SetLogFileSizeKB",   "GetLogFileSizeKB",  "SetNumberOfOldCopies", "GetNumberOfOldCopies",
    "GetLogFileFullPath", "FlushBufferedData", "InitializeLogFile"};

TEST_F(ScriptClassTest, OpeningReturnsTrue) {
    EXPECT_EQ(luaopen_ostrel(L), 1);
    EXPECT_TRUE(lua_isboolean(L, -1) && lua_toboolean(L, -1));
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(ScriptClassTest, SecondOpeningLeavesTheClassesAsTheyAre) {
    Run("SLB.ostrel.LogData.mark = 5 SLB.ostrel.LogData.WriteLogData = nil");
    luaopen_ostrel(L);
    EXPECT_EQ(Eval("SLB.ostrel.LogData.mark, SLB.ostrel.LogData.WriteLogData"), "5 nil");
}

TEST_F(ScriptClassTest, MetatableStandsInTheRegistryUnderTheFullName) {
    luaL_getmetatable(L, "SLB.ostrel.LogData");
    lua_setglobal(L, "meta");
    EXPECT_EQ(Eval("meta == getmetatable(log), meta.__index == SLB.ostrel.LogData, meta.__class,"
                   " type(meta.__gc), type(getmetatable(SLB.ostrel.LogData).__call)"),
              "true true SLB.ostrel.LogData function function");
}

TEST_F(ScriptClassTest, EveryMethodIsThere) {
    EXPECT_EQ(Eval("type(SLB.ostrel.LogData.SetKdi)"), "function");
    for (const char* method : kLogMethods)
        EXPECT_EQ(Eval(std::string("type(log.") + method + ")"), "function") << method;
    for (const char* method : kOtherMethods)
        EXPECT_EQ(Eval(std::string("type(log.") + method + ")"), "function") << method;
}

TEST_F(ScriptClassTest, ConstructorNeedsADom) {
    const std::string error = "script:1: Expected (non-const) Object SLB.Dom";
    for (const char* argument : {"", "nil", "5", "{}", "log", "io.stdout"})
        EXPECT_EQ(Run(std::string("SLB.ostrel.LogData(") + argument + ")"), error) << argument;
}

TEST_F(ScriptClassTest, ConstructorRefusesAConstDom) {
    SetObject("constDom", "SLB.Dom", &dom, true);
    EXPECT_EQ(Run("SLB.ostrel.LogData(constDom)"), "script:1: Expected (non-const) Object SLB.Dom");
}

TEST_F(ScriptClassTest, ConstructorTakesADomOfADerivedClass) {
    MakeClass("Test.Dom", "SLB.Dom");
    SetObject("derived", "Test.Dom", &dom, false);
    EXPECT_EQ(Run("other = SLB.ostrel.LogData(derived)"), "");
    EXPECT_EQ(Eval("other:GetLogFileName()"), "velm_mpnp");
}

TEST_F(ScriptClassTest, EachObjectIsALogOfItsOwn) {
    Run("other = SLB.ostrel.LogData(dom) other:SetLogFileName('other')");
    EXPECT_EQ(Eval("log:GetLogFileName(), other:GetLogFileName()"), "fw other");
}

TEST_F(ScriptClassTest, PipelineMethodsNeedALogAsTheirFirstArgument) {
    for (const char* method : kLogMethods) {
        for (const char* argument : {"", "nil", "5", "'x'", "{}", "dom", "io.stdout"}) {
            EXPECT_EQ(Error(method, argument), BadArgument(1, method, kNoLog)) << argument;
        }
    }
}

TEST_F(ScriptClassTest, OtherMethodsNeedALogAsTheirFirstArgument) {
    for (const char* method : kOtherMethods) {
        for (const char* argument : {"", "nil", "5", "'x'", "{}", "dom", "io.stdout"}) {
            EXPECT_EQ(Error(method, argument), std::string("script:1: ") + kNoObject) << method;
        }
    }
}

TEST_F(ScriptClassTest, ConstReferenceIsNoLog) {
    VelmCore::ScriptObject* reference = SetObject("constLog", "SLB.ostrel.LogData", &Log(), true);
    for (const char* method : kLogMethods)
        EXPECT_EQ(Error(method, "constLog"), BadArgument(1, method, kNoLog));
    for (const char* method : kOtherMethods)
        EXPECT_EQ(Error(method, "constLog"), std::string("script:1: ") + kNoObject);
    EXPECT_EQ(Error("SetKdi", "constLog"), BadArgument(1, "SetKdi", kNoLog));
    reference->object = nullptr;
}

TEST_F(ScriptClassTest, ObjectOfADerivedClassIsALog) {
    MakeClass("Test.Log", "SLB.ostrel.LogData");
    MakeClass("Test.MoreLog", "Test.Log");
    SetObject("derived", "Test.MoreLog", &Log(), false);
    EXPECT_EQ(Eval("SLB.ostrel.LogData.GetLogFileName(derived)"), "fw");
    EXPECT_EQ(Eval("SLB.ostrel.LogData.GetLogData(derived)"), "");
}

TEST_F(ScriptClassTest, DestroyedObjectIsNoLog) {
    Run("other = SLB.ostrel.LogData(dom) getmetatable(other).__gc(other)");
    EXPECT_EQ(Run("other:GetLogFileName()"), std::string("script:1: ") + kNoObject);
    EXPECT_EQ(Run("getmetatable(other).__gc(other)"), "");
}

TEST_F(ScriptClassTest, CollectedObjectClosesItsFileAndWritesNothing) {
    Run("other = SLB.ostrel.LogData(dom) other:SetLogFilePath(directory)"
        " other:SetLogFileName('other') other:InitializeLogFile()");
    const int fd = OSTREL::LogDataPeer(Log("other")).logFile.fd();
    Log("other").CacheRecord("a", 1, 1, 1);
    Log("other").InitializeLogFile();
    Run("other = nil collectgarbage() collectgarbage()");
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(directory.Read("other"), "");
}

TEST_F(ScriptClassTest, SetKdiKeepsTheHandleAndReturnsOne) {
    int driver;
    SetHandle("handle", &driver);
    EXPECT_EQ(Eval("log:SetKdi(handle)"), "1");
    EXPECT_EQ(static_cast<void*>(Peer().kdiHandle), &driver);
}

TEST_F(ScriptClassTest, SetKdiNeedsALog) {
    TraceScope trace;
    EXPECT_EQ(Error("SetKdi", "5, handle"), BadArgument(1, "SetKdi", kNoLog));
    EXPECT_EQ(trace.Take(), Texts({"SetKdi called", kNoLog}));
}

TEST_F(ScriptClassTest, SetKdiNeedsAHandle) {
    TraceScope trace;
    for (const char* argument : {"log", "log, 5", "log, {}", "log, dom", "log, io.stdout"}) {
        EXPECT_EQ(Error("SetKdi", argument), BadArgument(2, "SetKdi", "kdi handle expected"));
        EXPECT_EQ(trace.Take(), Texts({"SetKdi called", "kdi handle expected"}));
    }
}

TEST_F(ScriptClassTest, SetKdiRefusesAClosedHandleAndKeepsTheFormerOne) {
    int driver;
    SetHandle("handle", &driver);
    SetHandle("closed", nullptr);
    Run("log:SetKdi(handle)");
    TraceScope trace;
    EXPECT_EQ(Error("SetKdi", "log, closed"),
              BadArgument(2, "SetKdi", "kdi handle already closed"));
    EXPECT_EQ(trace.Take(), Texts({"SetKdi called", "kdi handle already closed"}));
    EXPECT_EQ(static_cast<void*>(Peer().kdiHandle), &driver);
}

}  // namespace
