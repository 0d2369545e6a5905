#include "ConfigFile.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "FileText.h"
#include "LuaBinding.h"

namespace {

constexpr size_t kMemoryMaximum = 64u << 20;
constexpr int kInstructionMaximum = 50'000'000;
constexpr int kDepthMaximum = 32;
constexpr int kValueMaximum = 1'000'000;
// Lua cuts long names of chunks in its messages: this one is replaced by the whole path.
constexpr const char* kChunkName = "=*";

// The state that the file runs in.
class Sandbox {
public:
    Sandbox() : m_L(lua_newstate(Allocate, this)) {
        if (m_L == nullptr) throw std::bad_alloc();
        lua_sethook(m_L, Stop, LUA_MASKCOUNT, kInstructionMaximum);
    }
    ~Sandbox() { lua_close(m_L); }
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    lua_State* Get() { return m_L; }
    // Leaves the file's result on the state's stack, or returns what went wrong.
    std::string Run(const std::string& path);

private:
    static void Stop(lua_State* L, lua_Debug*) { luaL_error(L, "runs too long"); }
    static void* Allocate(void* self, void* block, size_t oldSize, size_t newSize);

    size_t m_Used = 0;
    lua_State* m_L;
};

// `oldSize` of a new block is a type, not a size.
void* Sandbox::Allocate(void* self, void* block, size_t oldSize, size_t newSize) {
    size_t& used = static_cast<Sandbox*>(self)->m_Used;
    const size_t held = block == nullptr ? 0 : oldSize;
    if (newSize == 0) {
        std::free(block);
        used -= held;
        return nullptr;
    }
    if (newSize > held && used - held + newSize > kMemoryMaximum) return nullptr;
    void* moved = std::realloc(block, newSize);
    if (moved != nullptr) used = used - held + newSize;
    return moved;
}

// "*:3: text" becomes "path:3: text".
std::string NameFile(const std::string& path, const std::string& message) {
    if (message.compare(0, 2, "*:") == 0) return path + message.substr(1);
    return path + ": " + message;
}

std::string Sandbox::Run(const std::string& path) {
    std::string text, reason;
    if (!ReadFileText(path, text, reason)) return path + ": " + reason;
    int status = luaL_loadbufferx(m_L, text.data(), text.size(), kChunkName, "t");
    if (status == LUA_OK) status = lua_pcall(m_L, 0, 1, 0);
    if (status == LUA_ERRMEM) return path + ": takes more than 64 MiB of memory";
    if (status != LUA_OK) {
        const char* message = lua_tostring(m_L, -1);
        return NameFile(path, message == nullptr ? "raises an error" : message);
    }
    if (lua_istable(m_L, -1)) return "";
    return path + ": must return a table, but returns " + luaL_typename(m_L, -1);
}

// Copies values between states. Throws what is wrong with a value; a Lua error, for lack of memory,
// comes from `m_To` only.
class Copier {
public:
    Copier(lua_State* from, lua_State* to) : m_From(from), m_To(to) {}

    // Pops the value on top of the source and pushes its copy.
    void Move(int depth) {
        if (++m_Values > kValueMaximum) throw std::length_error("holds too many values");
        switch (lua_type(m_From, -1)) {
            case LUA_TBOOLEAN:
                lua_pushboolean(m_To, lua_toboolean(m_From, -1));
                break;
            case LUA_TNUMBER:
                lua_pushnumber(m_To, lua_tonumber(m_From, -1));
                break;
            case LUA_TSTRING:
                MoveString();
                break;
            case LUA_TTABLE:
                MoveTable(depth + 1);
                break;
            default:
                throw std::invalid_argument(std::string("a ") + luaL_typename(m_From, -1) +
                                            " can't be a value of the configuration");
        }
        lua_pop(m_From, 1);
    }

private:
    void MoveString() {
        size_t length = 0;
        const char* text = lua_tolstring(m_From, -1, &length);
        lua_pushlstring(m_To, text, length);
    }
    void MoveTable(int depth) {
        if (depth > kDepthMaximum || !lua_checkstack(m_From, 8))
            throw std::length_error("tables are nested too deeply");
        luaL_checkstack(m_To, 8, "configuration");
        lua_newtable(m_To);
        lua_pushnil(m_From);
        while (lua_next(m_From, -2) != 0) {
            lua_pushvalue(m_From, -2);
            Move(depth);
            lua_pushvalue(m_From, -1);
            Move(depth);
            lua_pop(m_From, 1);
            lua_rawset(m_To, -3);
        }
    }

    lua_State* m_From;
    lua_State* m_To;
    int m_Values = 0;
};

}  // namespace

int LoadTable(lua_State* L) {
    const char* path = luaL_checkstring(L, 1);
    auto& sandbox = PushBox<Sandbox>(L);
    auto& failure = PushBox<std::string>(L);
    failure = sandbox.Run(path);
    try {
        if (failure.empty()) Copier(sandbox.Get(), L).Move(0);
    } catch (const std::logic_error& error) {
        failure = std::string(path) + ": " + error.what();
    }
    if (failure.empty()) return 1;
    lua_pushnil(L);
    PushString(L, failure);
    return 2;
}
