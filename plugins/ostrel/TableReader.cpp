#include "TableReader.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "ScriptGuard.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

// Far more than one script call leaves in the ordinary way, far less than Lua's limit.
constexpr int kMaxLeftovers = 1000;
// Values that one operation has on the stack at once, the call's own included.
constexpr int kWorkingSlots = 16;

int GetField(lua_State* L) {
    lua_getfield(L, 1, static_cast<const char*>(lua_touserdata(L, 2)));
    return 1;
}

// Gives the name's string, and keeps it in the registry.
int KeepName(lua_State* L) {
    const auto* name = static_cast<const FieldName*>(lua_touserdata(L, 1));
    lua_pushstring(L, name->text);
    lua_pushvalue(L, -1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, name);
    return 1;
}

// wx reads characters beyond Unicode's last, but reports a fault of the program if it is to write
// one.
bool IsWritable(const wxString& text) {
    constexpr wxUint32 kLast = 0x10FFFF;
    return std::all_of(text.begin(), text.end(), [](wxUniChar c) { return c.GetValue() <= kLast; });
}

int GetNext(lua_State* L) {
    return lua_next(L, 1) != 0 ? 2 : 0;
}

// The conversions of a number that an int cannot hold are undefined: they give the nearest int.
int Truncate(lua_Number number) {
    if (std::isnan(number)) return 0;
    if (number >= std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (number <= std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return static_cast<int>(number);
}

}  // namespace

void TableReader::Reserve() {
    if (lua_gettop(m_L) - m_Base > kMaxLeftovers) lua_settop(m_L, m_Base);
    if (!lua_checkstack(m_L, kWorkingSlots)) throw std::runtime_error("stack overflow");
}

void TableReader::PushField(int index, const char* key) {
    const int table = lua_absindex(m_L, index);
    lua_pushcfunction(m_L, GetField);
    lua_pushvalue(m_L, table);
    // Lua only hands the pointer back; the key itself is not written to.
    lua_pushlightuserdata(m_L, const_cast<char*>(key));
    if (lua_pcall(m_L, 2, 1, 0) != LUA_OK) throw ScriptError();
}

// Without a metatable there is nothing that could raise: the string of the name exists.
void TableReader::PushField(int index, const FieldName& name) {
    if (!IsPlainTable(index)) return PushField(index, name.text);
    const int table = lua_absindex(m_L, index);
    PushName(name);
    lua_rawget(m_L, table);
}

bool TableReader::IsPlainTable(int index) {
    if (lua_type(m_L, index) != LUA_TTABLE) return false;
    if (lua_getmetatable(m_L, index) == 0) return true;
    Pop(1);
    return false;
}

void TableReader::PushName(const FieldName& name) {
    lua_rawgetp(m_L, LUA_REGISTRYINDEX, &name);
    if (lua_type(m_L, -1) == LUA_TSTRING) return;
    Pop(1);
    lua_pushcfunction(m_L, KeepName);
    // Lua only hands the pointer back.
    lua_pushlightuserdata(m_L, const_cast<FieldName*>(&name));
    if (lua_pcall(m_L, 1, 1, 0) != LUA_OK) throw ScriptError();
}

// The walk raises if a metamethod that ran in between has taken the key out of the table.
bool TableReader::Next(int table) {
    table = lua_absindex(m_L, table);
    const int key = lua_gettop(m_L);
    lua_pushcfunction(m_L, GetNext);
    lua_pushvalue(m_L, table);
    lua_pushvalue(m_L, key);
    if (lua_pcall(m_L, 2, LUA_MULTRET, 0) != LUA_OK) throw ScriptError();
    lua_remove(m_L, key);
    return lua_gettop(m_L) > key;
}

int TableReader::IntegerField(const FieldName& name) {
    PushField(-1, name);
    // The low 32 bits, as an integer of Lua 5.2 is taken everywhere.
    const int value = static_cast<int>(static_cast<uint32_t>(lua_tointegerx(m_L, -1, nullptr)));
    Pop(1);
    return value;
}

int TableReader::NumberField(const FieldName& name) {
    PushField(-1, name);
    const int value = Truncate(lua_tonumberx(m_L, -1, nullptr));
    Pop(1);
    return value;
}

bool TableReader::BooleanField(const FieldName& name) {
    PushField(-1, name);
    const bool value = lua_toboolean(m_L, -1) != 0;
    Pop(1);
    return value;
}

// The bytes of the string or number on top, good until it is popped.
std::string_view TableReader::TopBytes(Digits& digits) {
    if (lua_type(m_L, -1) == LUA_TSTRING) {
        size_t length = 0;
        const char* data = lua_tolstring(m_L, -1, &length);
        return std::string_view(data, length);
    }
    if (lua_type(m_L, -1) != LUA_TNUMBER) return {};
    // Converted here: Lua's own conversion makes a string and may raise.
    const int length =
        snprintf(digits.text, sizeof digits.text, LUA_NUMBER_FMT, lua_tonumber(m_L, -1));
    return std::string_view(digits.text, static_cast<size_t>(length));
}

std::string TableReader::BytesField(const FieldName& name) {
    PushField(-1, name);
    Digits digits;
    std::string bytes(TopBytes(digits));
    Pop(1);
    return bytes;
}

wxString TableReader::TextField(const FieldName& name) {
    const std::string bytes = BytesField(name);
    return wxString::FromUTF8(bytes.data(), bytes.size());
}

// What is no UTF-8 by the standard may still be some to wx, and then reads as wx reads it.
void TableReader::TextField(const FieldName& name, ShortText& text) {
    PushField(-1, name);
    Digits digits;
    const std::string_view bytes = TopBytes(digits);
    if (VelmCore::IsUtf8(bytes)) {
        text.assign(bytes);
    } else {
        const wxString read = wxString::FromUTF8(bytes.data(), bytes.size());
        text.clear();
        if (IsWritable(read)) {
            const wxScopedCharBuffer utf8 = read.utf8_str();
            text.assign(utf8.data(), utf8.length());
        }
    }
    Pop(1);
}

}  // namespace OSTREL
