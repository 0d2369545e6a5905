#include "DomBinding.h"

#include <cmath>
#include <cstdlib>
#include <utility>
#include <vector>

#include "LuaBinding.h"
#include "kdi/ssl.h"
#include "velm/Log.h"
#include "velm/ScriptObject.h"
#include "velm/Trace.h"

using VelmCore::CDom;

namespace {

constexpr const char* kDomClass = "SLB.Dom";

CDom& CheckDom(lua_State* L) {
    auto* reference = static_cast<VelmCore::ScriptObject*>(luaL_testudata(L, 1, kDomClass));
    if (reference == nullptr || reference->object == nullptr || reference->isConst) {
        luaL_error(L, "Expected non-null object(%s) as first argument to method call", kDomClass);
        std::abort();  // not reached: the error does not return
    }
    return *static_cast<CDom*>(reference->object);
}

std::string CheckedKey(const char* text, size_t length) {
    return std::string(text, length);
}

std::string ToUtf8(const wxString& text) {
    return text.utf8_string();
}

int Get(lua_State* L) {
    const CDom& dom = CheckDom(L);
    size_t length = 0;
    const char* key = luaL_checklstring(L, 2, &length);
    auto& value = PushBox<std::string>(L);
    value = dom.Get(CheckedKey(key, length));
    PushString(L, value);
    return 1;
}

// A whole number is stored as one; any other as its text, which is what readers of settings take.
bool IsWhole(lua_Number value) {
    return std::floor(value) == value && value >= -9007199254740992.0 &&
           value <= 9007199254740992.0;
}

void SetNumber(lua_State* L, CDom& dom, const char* key, size_t keyLength) {
    const lua_Number value = lua_tonumber(L, 3);
    if (!std::isfinite(value)) luaL_argerror(L, 3, "finite number expected");
    if (IsWhole(value)) {
        dom.Set(CheckedKey(key, keyLength), static_cast<long long>(value));
        return;
    }
    size_t length = 0;
    const char* text = lua_tolstring(L, 3, &length);
    dom.SetText(CheckedKey(key, keyLength), std::string(text, length));
}

int Set(lua_State* L) {
    CDom& dom = CheckDom(L);
    size_t keyLength = 0, length = 0;
    const char* key = luaL_checklstring(L, 2, &keyLength);
    switch (lua_type(L, 3)) {
        case LUA_TSTRING: {
            const char* text = lua_tolstring(L, 3, &length);
            dom.SetText(CheckedKey(key, keyLength), std::string(text, length));
            break;
        }
        case LUA_TNUMBER:
            SetNumber(L, dom, key, keyLength);
            break;
        case LUA_TBOOLEAN:
            dom.SetText(CheckedKey(key, keyLength), lua_toboolean(L, 3) ? "true" : "false");
            break;
        default:
            luaL_argerror(L, 3, "string, number or boolean expected");
    }
    return 0;
}

int ConfigSetXml(lua_State* L) {
    CDom& dom = CheckDom(L);
    size_t length = 0;
    const char* xml = luaL_checklstring(L, 2, &length);
    auto& reason = PushBox<std::string>(L);
    reason = ToUtf8(dom.ConfigSetXml(std::string(xml, length)));
    if (!reason.empty()) return luaL_error(L, "policy refused: %s", reason.c_str());
    return 0;
}

int ConditionRaise(lua_State* L) {
    CDom& dom = CheckDom(L);
    size_t length = 0;
    const char* name = luaL_checklstring(L, 2, &length);
    dom.ConditionRaise(std::string(name, length));
    return 0;
}

int ConditionQuery(lua_State* L) {
    CDom& dom = CheckDom(L);
    size_t length = 0;
    const char* name = luaL_checklstring(L, 2, &length);
    unsigned long long value = 0;
    dom.ConditionQuery(std::string(name, length), value, nullptr, nullptr);
    lua_pushnumber(L, static_cast<lua_Number>(value));
    return 1;
}

int TakeEvents(lua_State* L) {
    CDom& dom = CheckDom(L);
    auto& events = PushBox<std::vector<std::pair<int, std::string>>>(L);
    for (const VelmCore::AgentEvent& event : dom.TakeEvents())
        events.emplace_back(event.number, ToUtf8(event.text));
    lua_newtable(L);
    for (size_t i = 0; i < events.size(); ++i) {
        lua_createtable(L, 0, 2);
        lua_pushinteger(L, events[i].first);
        lua_setfield(L, -2, "number");
        PushString(L, events[i].second);
        lua_setfield(L, -2, "text");
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    return 1;
}

using TextPairs = std::vector<std::pair<std::string, std::string>>;

void PushPairs(lua_State* L, const TextPairs& rows, const char* first, const char* second) {
    lua_newtable(L);
    for (size_t i = 0; i < rows.size(); ++i) {
        lua_createtable(L, 0, 2);
        PushString(L, rows[i].first);
        lua_setfield(L, -2, first);
        PushString(L, rows[i].second);
        lua_setfield(L, -2, second);
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
}

int TraceEnable(lua_State* L) {
    CheckDom(L);
    size_t length = 0;
    const char* component = CheckUtf8(L, 2, length);
    const bool on = CheckBoolean(L, 3);
    VelmCore::EnableTrace(wxString::FromUTF8(component, length), on);
    return 0;
}

int TakeTrace(lua_State* L) {
    CheckDom(L);
    auto& rows = PushBox<TextPairs>(L);
    for (const VelmCore::TraceLine& line : VelmCore::TakeTrace())
        rows.emplace_back(ToUtf8(line.component), ToUtf8(line.message));
    PushPairs(L, rows, "component", "message");
    return 1;
}

int TakeLog(lua_State* L) {
    CheckDom(L);
    auto& rows = PushBox<TextPairs>(L);
    for (const VelmCore::LogLine& line : VelmCore::TakeLog())
        rows.emplace_back(ToUtf8(line.level), ToUtf8(line.text));
    PushPairs(L, rows, "level", "text");
    return 1;
}

int RequestExit(lua_State* L) {
    CheckDom(L).RequestExit();
    kdi_wake_ssl_readers();
    return 0;
}

// The object belongs to the process: a script that drops its reference ends nothing.
int Forget(lua_State*) {
    return 0;
}

const luaL_Reg kMethods[] = {
    {"Get", Guarded<Get>},
    {"Set", Guarded<Set>},
    {"ConfigSetXml", Guarded<ConfigSetXml>},
    {"ConditionRaise", Guarded<ConditionRaise>},
    {"ConditionQuery", Guarded<ConditionQuery>},
    {"TakeEvents", Guarded<TakeEvents>},
    {"TraceEnable", Guarded<TraceEnable>},
    {"TakeTrace", Guarded<TakeTrace>},
    {"TakeLog", Guarded<TakeLog>},
    {"RequestExit", Guarded<RequestExit>},
    {nullptr, nullptr},
};

}  // namespace

void RegisterDom(lua_State* L, CDom& dom) {
    RegisterClass(L, kDomClass, kMethods);
    luaL_getmetatable(L, kDomClass);
    lua_pushcfunction(L, Forget);
    lua_setfield(L, -2, "__gc");
    auto* reference =
        static_cast<VelmCore::ScriptObject*>(lua_newuserdata(L, sizeof(VelmCore::ScriptObject)));
    *reference = {&dom, false};
    lua_insert(L, -2);
    lua_setmetatable(L, -2);
    lua_setglobal(L, "dom");
}
