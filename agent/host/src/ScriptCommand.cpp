#include "ScriptCommand.h"

#include <filesystem>

#include "FileText.h"
#include "Message.h"

namespace {

void SetArguments(lua_State* L, const std::string& file,
                  const std::vector<std::string>& arguments) {
    lua_createtable(L, static_cast<int>(arguments.size()), 1);
    lua_pushstring(L, file.c_str());
    lua_rawseti(L, -2, 0);
    for (size_t i = 0; i < arguments.size(); ++i) {
        lua_pushstring(L, arguments[i].c_str());
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    lua_setglobal(L, "arg");
}

// A first line that begins with "#" belongs to the shell; its line end stays, for the line numbers.
void DropShellLine(std::string& text) {
    if (text[0] == '#') text.erase(0, text.find('\n'));
}

bool LoadScript(lua_State* L, const std::string& file) {
    std::string text, reason;
    if (!ReadFileText(file, text, reason)) {
        PrintError(file, reason);
        return false;
    }
    DropShellLine(text);
    if (luaL_loadbufferx(L, text.data(), text.size(), ("@" + file).c_str(), "t") == LUA_OK)
        return true;
    PrintError(lua_tostring(L, -1));
    return false;
}

int CallScript(lua_State* L, const std::string& file, const std::vector<std::string>& arguments) {
    lua_pushcfunction(L, AddTraceback);
    lua_insert(L, -2);
    luaL_checkstack(L, static_cast<int>(arguments.size()), "too many arguments");
    for (const std::string& argument : arguments)
        lua_pushstring(L, argument.c_str());
    if (lua_pcall(L, static_cast<int>(arguments.size()), 0, 1) == LUA_OK) return kDone;
    PrintError(file, lua_tostring(L, -1));
    return kFailed;
}

}  // namespace

int RunScript(const AgentOptions& options, const std::string& file,
              const std::vector<std::string>& arguments) {
    AgentOptions all = options;
    all.scriptFolder = std::filesystem::path(file).parent_path();
    if (all.scriptFolder.empty()) all.scriptFolder = ".";
    Agent agent(all);
    if (!agent.Prepare(all)) return kBadInput;
    SetArguments(agent.Lua(), file, arguments);
    if (!LoadScript(agent.Lua(), file)) return kBadInput;
    return CallScript(agent.Lua(), file, arguments);
}
