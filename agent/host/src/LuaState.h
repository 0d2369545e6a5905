#pragma once

#include <string>

#include <lua.hpp>

// A Lua state with the standard libraries, deaf to the environment's LUA_PATH and LUA_CPATH.
class LuaState {
public:
    LuaState();
    ~LuaState() { Close(); }
    LuaState(const LuaState&) = delete;
    LuaState& operator=(const LuaState&) = delete;

    lua_State* Get() const { return m_L; }
    // Runs the finalisers of all objects. May be called from within a Lua call that never returns.
    void Close();

private:
    lua_State* m_L;
};

// Where the program finds its parts.
struct Folders {
    std::string modules;  // plug-ins
    std::string scripts;  // the agent's Lua scripts
};
Folders FindFolders();

// Lets `require` look in these folders, and for scripts in `scriptFolder` as well unless it is
// empty.
void SetSearchPaths(lua_State* L, const Folders& folders, const std::string& scriptFolder);
// Lets `require` open the module `name`. The `upvalues` topmost values become the opener's.
void Preload(lua_State* L, const char* name, lua_CFunction opener, int upvalues = 0);

// Message handler: the error's text with a traceback; a table that carries `status` stays as it is.
int AddTraceback(lua_State* L);
