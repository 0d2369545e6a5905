#pragma once

#include <lua.hpp>
#include <memory>
#include <string>

#include "LogData.h"
#include "velm/Dom.h"

namespace Fuzz {

// A Lua state with the module's classes and one log.
class ScriptHost {
public:
    ScriptHost(VelmCore::CDom& dom, const std::string& directory);

    lua_State* State() { return m_State.get(); }
    OSTREL::LogData& Log() { return *m_Log; }
    // Pushes a method of the log and the log itself.
    void PushMethod(const char* name);

private:
    std::unique_ptr<lua_State, decltype(&lua_close)> m_State;
    OSTREL::LogData* m_Log = nullptr;  // lives in its userdata
    int m_Reference = LUA_NOREF;
};

}  // namespace Fuzz
