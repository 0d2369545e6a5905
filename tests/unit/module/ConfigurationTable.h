#pragma once

#include <stdexcept>
#include <string>

#include <lua.hpp>

// A configuration table in a Lua state, at index 1.
class ConfigurationTable {
public:
    static constexpr int kIndex = 1;

    ConfigurationTable() : m_L(luaL_newstate()) {
        luaL_openlibs(m_L);
        lua_newtable(m_L);
    }
    ~ConfigurationTable() { lua_close(m_L); }
    ConfigurationTable(const ConfigurationTable&) = delete;
    ConfigurationTable& operator=(const ConfigurationTable&) = delete;

    // `expression` is the table as Lua writes it.
    void Set(const std::string& expression) {
        lua_settop(m_L, 0);
        if (luaL_dostring(m_L, ("return " + expression).c_str())) {
            throw std::runtime_error(lua_tostring(m_L, -1));
        }
        lua_settop(m_L, 1);
    }
    // Takes away what a call has left on the stack, as its return would.
    void EndCall() { lua_settop(m_L, kIndex); }

    lua_State* State() const { return m_L; }
    int Leftovers() const { return lua_gettop(m_L) - kIndex; }

private:
    lua_State* m_L;
};
