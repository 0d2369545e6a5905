#pragma once

#include <string>
#include <string_view>

#include <wx/string.h>
#include <lua.hpp>

#include "ShortText.h"

namespace OSTREL {

// The name of a field that is read often. Its address is its key in Lua's registry, so it lives as
// long as the process.
struct FieldName {
    const char* text;
};

// Reads Lua tables where objects with destructors are alive: whatever Lua raises (a metamethod,
// memory) is thrown as ScriptError. Used on the thread of the script call only.
class TableReader {
public:
    explicit TableReader(lua_State* L) : m_L(L), m_Base(lua_gettop(L)) {}

    // To be called before an operation pushes anything. What failed operations left on the stack
    // stays there until it becomes too much, and then goes, so that no number of failures overflows
    // it.
    void Reserve();

    bool IsTable(int index) const { return lua_type(m_L, index) == LUA_TTABLE; }
    // Pushes the field of the value at `index`, with metamethods.
    void PushField(int index, const char* key);
    void PushField(int index, const FieldName& name);
    void PushRawItem(int index, int key) { lua_rawgeti(m_L, index, key); }
    // Replaces the key on top by the table's next key and value; with none left, pops it and
    // returns false.
    bool Next(int table);
    void Pop(int count) { lua_settop(m_L, -count - 1); }

    // Each pushes a field of the table on top, reads it and pops it. A missing field reads as 0,
    // empty or false.
    int IntegerField(const FieldName& name);
    int NumberField(const FieldName& name);  // truncated; for values that are no integers
    bool BooleanField(const FieldName& name);
    std::string BytesField(const FieldName& name);
    // UTF-8; anything else reads as empty.
    wxString TextField(const FieldName& name);
    void TextField(const FieldName& name, ShortText& text);

    lua_State* State() const { return m_L; }

private:
    struct Digits {
        char text[64];
    };
    bool IsPlainTable(int index);
    void PushName(const FieldName& name);
    std::string_view TopBytes(Digits& digits);

    lua_State* m_L;
    int m_Base;
};

}  // namespace OSTREL
