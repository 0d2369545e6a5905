#pragma once

#include <string>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "CoreEnvironment.h"
#include "Entries.h"
#include "LogData.h"
#include "LogDataPeer.h"
#include "TempDirectory.h"
#include "velm/ScriptObject.h"

extern "C" int luaopen_ostrel(lua_State* L);

// A Lua state as the agent offers it, with the module opened, and the globals
//   dom          the process's "SLB.Dom"
//   log          a log with the name "fw" in a directory of its own
//   entry        an entry, and `empty`, a configuration in which the cache is off
// Errors are told with the chunk's name "script".
class ScriptTest : public ::testing::Test {
protected:
    explicit ScriptTest(lua_Alloc allocate = nullptr, void* context = nullptr)
        : L(allocate != nullptr ? lua_newstate(allocate, context) : luaL_newstate()) {
        luaL_openlibs(L);
        MakeClass("SLB.Dom", nullptr);
        SetObject("dom", "SLB.Dom", &dom, false);
        luaL_requiref(L, "ostrel", luaopen_ostrel, 0);
        lua_settop(L, 0);
        SetBytes("directory", directory.Path());
        SetEntry("entry", TcpEntry());
        Run("log = SLB.ostrel.LogData(dom) log:SetLogFilePath(directory) log:SetLogFileName('fw')"
            " empty = {packetFilterLog = {}, trafficAnalysisConfiguration = {},"
            "          probeConfigurationMap = {}}");
        VelmCore::TakeLog();
    }
    ~ScriptTest() override {
        if (!IsNil("log")) OSTREL::LogDataPeer(Log()).FreeLists();
        lua_close(L);
    }

    // Runs a chunk. Empty, or the text of its error.
    std::string Run(const std::string& chunk) {
        std::string error;
        if (luaL_loadbuffer(L, chunk.data(), chunk.size(), "=script") != LUA_OK ||
            lua_pcall(L, 0, 0, 0) != LUA_OK) {
            error = luaL_tolstring(L, -1, nullptr);
        }
        lua_settop(L, 0);
        return error;
    }
    // The values of an expression list, each as text, with blanks between them.
    std::string Eval(const std::string& expressions) {
        const std::string error = Run("local values = table.pack(" + expressions +
                                      ") for i = 1, values.n do values[i] = tostring(values[i]) end"
                                      " result = table.concat(values, ' ')");
        if (!error.empty()) return error;
        lua_getglobal(L, "result");
        size_t length;
        const char* data = lua_tolstring(L, -1, &length);
        const std::string result(data, length);
        lua_settop(L, 0);
        return result;
    }

    void SetBytes(const char* name, const std::string& bytes) {
        lua_pushlstring(L, bytes.data(), bytes.size());
        lua_setglobal(L, name);
    }
    void SetEntry(const char* name, const velm_log_entry_s& entry) {
        SetBytes(name, std::string(reinterpret_cast<const char*>(&entry), sizeof entry));
    }
    // Registers a class without methods, derived from `base` unless that is null.
    void MakeClass(const char* fullName, const char* base) {
        luaL_newmetatable(L, fullName);
        lua_newtable(L);
        lua_newtable(L);
        if (base != nullptr) {
            lua_pushstring(L, base);
            lua_rawseti(L, -2, 1);
        }
        lua_setmetatable(L, -2);
        lua_setfield(L, -2, "__index");
        lua_pushstring(L, fullName);
        lua_setfield(L, -2, "__class");
        lua_pop(L, 1);
    }
    // Puts a reference to an object into a global. It does not own the object.
    VelmCore::ScriptObject* SetObject(const char* name, const char* fullName, void* object,
                                      bool isConst) {
        auto* reference = static_cast<VelmCore::ScriptObject*>(
            lua_newuserdata(L, sizeof(VelmCore::ScriptObject)));
        *reference = {object, isConst};
        luaL_setmetatable(L, fullName);
        lua_setglobal(L, name);
        return reference;
    }
    bool IsNil(const char* name) {
        lua_getglobal(L, name);
        const bool isNil = lua_isnil(L, -1);
        lua_pop(L, 1);
        return isNil;
    }
    OSTREL::LogData& Log(const char* name = "log") {
        lua_getglobal(L, name);
        auto* reference = static_cast<VelmCore::ScriptObject*>(lua_touserdata(L, -1));
        lua_pop(L, 1);
        return *static_cast<OSTREL::LogData*>(reference->object);
    }
    OSTREL::LogDataPeer Peer() { return OSTREL::LogDataPeer(Log()); }
    std::string File() const { return directory.Read("fw"); }

    TempDirectory directory;
    VelmCore::CDom dom;
    lua_State* const L;
};
