#include "ScriptClass.h"

#include <cstring>

namespace OSTREL {

namespace {

// Leaves the array of a class's bases on the stack, or returns false with nothing pushed. The
// class's metatable lies on top.
bool PushBases(lua_State* L) {
    lua_pushliteral(L, "__index");
    lua_rawget(L, -2);
    const bool hasBases = lua_istable(L, -1) && lua_getmetatable(L, -1);
    if (!hasBases) {
        lua_pop(L, 1);
        return false;
    }
    lua_remove(L, -2);
    return true;
}

// Deeper than any class tree; a circle ends here.
constexpr int kMaxDepth = 16;

// True if the class whose metatable lies on top is, or derives from, the class named.
bool IsClass(lua_State* L, const char* fullName, int depth = 0) {
    if (depth == kMaxDepth) return false;
    luaL_checkstack(L, 8, "class tree too deep");
    lua_pushliteral(L, "__class");
    lua_rawget(L, -2);
    const char* name = lua_type(L, -1) == LUA_TSTRING ? lua_tostring(L, -1) : "";
    bool matches = strcmp(name, fullName) == 0;
    lua_pop(L, 1);
    if (matches || !PushBases(L)) return matches;
    for (int i = 1; !matches; ++i) {
        lua_rawgeti(L, -1, i);
        if (lua_type(L, -1) != LUA_TSTRING) {
            lua_pop(L, 1);
            break;
        }
        lua_rawget(L, LUA_REGISTRYINDEX);
        matches = lua_istable(L, -1) && IsClass(L, fullName, depth + 1);
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
    return matches;
}

// __index of a class table's metatable: the member that the first of the bases has. The bases are
// the array in the upvalue.
int InheritedMember(lua_State* L) {
    for (int i = 1;; ++i) {
        lua_settop(L, 2);
        lua_rawgeti(L, lua_upvalueindex(1), i);
        if (lua_type(L, -1) != LUA_TSTRING) return 0;
        lua_rawget(L, LUA_REGISTRYINDEX);
        if (!lua_istable(L, -1)) continue;
        lua_getfield(L, -1, "__index");
        if (!lua_istable(L, -1)) continue;
        lua_pushvalue(L, 2);
        lua_gettable(L, -2);
        if (!lua_isnil(L, -1)) return 1;
    }
}

}  // namespace

void PushNamedTable(lua_State* L, const char* fullName) {
    lua_pushglobaltable(L);
    const char* part = fullName;
    while (*part != '\0') {
        const size_t length = strcspn(part, ".");
        lua_pushlstring(L, part, length);
        lua_pushvalue(L, -1);
        lua_rawget(L, -3);
        if (!lua_istable(L, -1)) {
            lua_pop(L, 1);
            lua_newtable(L);
            lua_pushvalue(L, -2);
            lua_pushvalue(L, -2);
            lua_rawset(L, -5);
        }
        lua_remove(L, -2);  // the name
        lua_remove(L, -2);  // the outer table
        part += length;
        if (*part == '.') ++part;
    }
}

bool BeginClass(lua_State* L, const char* fullName, lua_CFunction constructor,
                lua_CFunction destructor) {
    if (!luaL_newmetatable(L, fullName)) {
        lua_pop(L, 1);
        return false;
    }
    lua_pushvalue(L, -1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, fullName);
    PushNamedTable(L, fullName);
    lua_pushvalue(L, -1);
    lua_setfield(L, -3, "__index");
    lua_pushstring(L, fullName);
    lua_setfield(L, -3, "__class");
    lua_pushcfunction(L, destructor);
    lua_setfield(L, -3, "__gc");
    lua_newtable(L);
    if (constructor != nullptr) {
        lua_pushcfunction(L, constructor);
        lua_setfield(L, -2, "__call");
    }
    lua_setmetatable(L, -2);
    lua_remove(L, -2);
    return true;
}

void AddMethod(lua_State* L, const char* name, lua_CFunction method) {
    lua_pushcfunction(L, method);
    lua_setfield(L, -2, name);
}

void AddBase(lua_State* L, const char* fullName) {
    lua_getmetatable(L, -1);
    lua_pushstring(L, fullName);
    lua_rawseti(L, -2, static_cast<int>(lua_rawlen(L, -2)) + 1);
    lua_pushvalue(L, -1);
    lua_pushcclosure(L, InheritedMember, 1);
    lua_setfield(L, -2, "__index");
    lua_pop(L, 1);
}

void* TestObject(lua_State* L, int index, const char* fullName) {
    if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) return nullptr;
    // The metatable of one of our classes stands in the registry under the name's address as well:
    // an object of the very class is known at once, which is done for each log entry.
    lua_rawgetp(L, LUA_REGISTRYINDEX, fullName);
    bool matches = lua_rawequal(L, -1, -2) != 0;
    lua_pop(L, 1);
    if (!matches) matches = IsClass(L, fullName);
    lua_pop(L, 1);
    if (!matches) return nullptr;
    const auto* object = static_cast<const VelmCore::ScriptObject*>(lua_touserdata(L, index));
    return object->isConst ? nullptr : object->object;
}

VelmCore::ScriptObject* NewObject(lua_State* L, size_t size) {
    void* memory = lua_newuserdata(L, sizeof(VelmCore::ScriptObject) + size);
    auto* object = static_cast<VelmCore::ScriptObject*>(memory);
    object->object = nullptr;
    object->isConst = false;
    return object;
}

}  // namespace OSTREL
