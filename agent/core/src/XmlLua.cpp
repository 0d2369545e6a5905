#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <lua.hpp>

#include "Utf8.h"
#include "velm/XmlObject.h"

namespace VelmCore {
namespace {

// An object as it will stand in Lua. Collected before any Lua call, since a Lua error would jump
// over the destructors of texts that are converted on the way.
struct Table {
    std::vector<std::pair<std::string, std::variant<bool, int, std::string>>> fields;
    std::vector<std::pair<std::string, Table>> children;
    bool isArray = false;
};

bool CollectAttribute(const XMLObject*, const wchar_t* name, _PrimitiveType type,
                      const void* member, void* context) {
    auto& fields = static_cast<Table*>(context)->fields;
    const std::string key = ToUtf8(name);
    switch (type) {
        case PrimitiveString:
            fields.emplace_back(key, ToUtf8(*static_cast<const wxString*>(member)));
            break;
        case PrimitiveSecureString:
            break;
        case PrimitiveBool:
            fields.emplace_back(key, *static_cast<const bool*>(member));
            break;
        case PrimitiveInt:
            fields.emplace_back(key, *static_cast<const int*>(member));
            break;
    }
    return true;
}

bool CollectChild(const XMLObject*, const XMLObject* child, void* context);

Table Collect(const XMLObject& object) {
    Table table;
    table.isArray = object.IsCollection();
    object.EnumAttributes(&CollectAttribute, &table);
    object.EnumChildObjects(&CollectChild, &table);
    return table;
}

bool CollectChild(const XMLObject*, const XMLObject* child, void* context) {
    auto& children = static_cast<Table*>(context)->children;
    children.emplace_back(ToUtf8(child->GetElementName()), Collect(*child));
    return true;
}

struct PushField {
    lua_State* L;
    void operator()(bool value) const { lua_pushboolean(L, value); }
    void operator()(int value) const { lua_pushinteger(L, value); }
    void operator()(const std::string& value) const {
        lua_pushlstring(L, value.data(), value.size());
    }
};

void SetField(lua_State* L, const std::string& key) {
    lua_pushlstring(L, key.data(), key.size());
    lua_insert(L, -2);
    lua_rawset(L, -3);
}

// May raise.
void Push(lua_State* L, const Table& table) {
    luaL_checkstack(L, 3, "policy element");
    lua_newtable(L);
    for (const auto& field : table.fields) {
        std::visit(PushField{L}, field.second);
        SetField(L, field.first);
    }
    int index = 0;
    for (const auto& child : table.children) {
        Push(L, child.second);
        if (table.isArray) {
            lua_rawseti(L, -2, ++index);
        } else {
            SetField(L, child.first);
        }
    }
}

int PushProtected(lua_State* L) {
    Push(L, *static_cast<const Table*>(lua_touserdata(L, 1)));
    return 1;
}

// Leaves the table on the stack, or, with a result other than LUA_OK, the error. Needs two free
// slots and does not raise.
int PushObject(lua_State* L, const XMLObject& object) {
    Table table = Collect(object);
    lua_pushcfunction(L, &PushProtected);
    lua_pushlightuserdata(L, &table);
    return lua_pcall(L, 1, 1, 0);
}

}  // namespace

void XMLObject::toLua(lua_State* L) const {
    luaL_checkstack(L, 2, "policy element");
    if (PushObject(L, *this) != LUA_OK) lua_error(L);
}

}  // namespace VelmCore
