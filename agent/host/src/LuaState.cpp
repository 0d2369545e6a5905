#include "LuaState.h"

#include <filesystem>
#include <new>

namespace fs = std::filesystem;

LuaState::LuaState() : m_L(luaL_newstate()) {
    if (m_L == nullptr) throw std::bad_alloc();
    lua_pushboolean(m_L, 1);
    lua_setfield(m_L, LUA_REGISTRYINDEX, "LUA_NOENV");
    luaL_openlibs(m_L);
}

void LuaState::Close() {
    if (m_L == nullptr) return;
    lua_State* L = m_L;
    m_L = nullptr;
    lua_close(L);
}

// In the build tree the scripts stand beside the program; installed, in the prefix.
Folders FindFolders() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    if (fs::is_directory(folder / "scripts")) return {folder, folder / "scripts"};
    const fs::path prefix = folder.parent_path();
    return {prefix / VELM_INSTALL_LIBDIR, prefix / "share/velm/scripts"};
}

void SetSearchPaths(lua_State* L, const Folders& folders, const std::string& scriptFolder) {
    lua_getglobal(L, "package");
    lua_pushfstring(L, "%s/?.lua", folders.scripts.c_str());
    if (!scriptFolder.empty()) {
        lua_pushfstring(L, ";%s/?.lua", scriptFolder.c_str());
        lua_concat(L, 2);
    }
    lua_setfield(L, -2, "path");
    lua_pushfstring(L, "%s/?.so", folders.modules.c_str());
    lua_setfield(L, -2, "cpath");
    lua_pop(L, 1);
}

void Preload(lua_State* L, const char* name, lua_CFunction opener, int upvalues) {
    lua_pushcclosure(L, opener, upvalues);
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "_PRELOAD");
    lua_insert(L, -2);
    lua_setfield(L, -2, name);
    lua_pop(L, 1);
}

namespace {

bool CarriesStatus(lua_State* L) {
    if (!lua_istable(L, 1)) return false;
    lua_getfield(L, 1, "status");
    const bool carries = lua_isnumber(L, -1) != 0;
    lua_pop(L, 1);
    return carries;
}

}  // namespace

int AddTraceback(lua_State* L) {
    if (CarriesStatus(L)) return 1;
    luaL_traceback(L, L, luaL_tolstring(L, 1, nullptr), 1);
    return 1;
}
