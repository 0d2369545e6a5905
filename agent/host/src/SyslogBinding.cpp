#include "SyslogBinding.h"

#include <chrono>
#include <cstring>

#include "Interrupt.h"
#include "LuaBinding.h"
#include "SyslogEvent.h"
#include "SyslogHeader.h"
#include "SyslogSender.h"
#include "kdi/log_entry.h"

namespace {

constexpr const char* kWriterType = "velm.syslog.writer";
constexpr const char* kSenderType = "velm.syslog.sender";
constexpr lua_Integer kMaxCloseMsec = 3600 * 1000;

struct Writer {
    Writer(SyslogHeader::Form form, int facility, const std::string& host, int hostId)
        : header(form, facility, host), events(hostId) {}

    SyslogHeader header;
    SyslogEvents events;
    std::string body;
    std::string message;
};

struct Sender {
    Sender(const SyslogTarget& target, size_t limit) : sender(target, limit) {}
    SyslogSender sender;
};

template <typename T>
T& Check(lua_State* L, const char* type) {
    return *static_cast<T*>(luaL_checkudata(L, 1, type));
}

template <typename T>
int Destroy(lua_State* L) {
    static_cast<T*>(lua_touserdata(L, 1))->~T();
    return 0;
}

int64_t UsecNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

// Raises for a host name that is no text, and so on: the caller has no destructor pending.
const char* TextField(lua_State* L, const char* field) {
    lua_getfield(L, 1, field);
    if (lua_type(L, -1) != LUA_TSTRING) luaL_error(L, "bad option '%s' (string expected)", field);
    const char* text = lua_tostring(L, -1);
    lua_pop(L, 1);  // the table keeps it
    return text;
}

lua_Integer NumberField(lua_State* L, const char* field) {
    lua_getfield(L, 1, field);
    if (lua_type(L, -1) != LUA_TNUMBER) luaL_error(L, "bad option '%s' (number expected)", field);
    const lua_Integer number = lua_tointeger(L, -1);
    lua_pop(L, 1);
    return number;
}

// Writer{facility=, framing="rfc5424"|"local", hostname=, hostID=}
int NewWriter(lua_State* L) {
    luaL_checktype(L, 1, LUA_TTABLE);
    const int facility = FacilityNumber(TextField(L, "facility"));
    if (facility < 0) return luaL_error(L, "bad option 'facility' (no facility)");
    const auto form = std::strcmp(TextField(L, "framing"), "local") == 0 ? SyslogHeader::Local
                                                                         : SyslogHeader::Rfc5424;
    const char* host = TextField(L, "hostname");
    const auto id = static_cast<int>(NumberField(L, "hostID"));
    void* memory = lua_newuserdata(L, sizeof(Writer));
    new (memory) Writer(form, facility, host, id);
    luaL_setmetatable(L, kWriterType);
    return 1;
}

// What is configured for the filter in a field of it; `missing` for one that is not configured.
lua_Integer FilterField(lua_State* L, int configuration, const char* map, uint32_t filter,
                        const char* field, lua_Integer missing) {
    const int top = lua_gettop(L);
    lua_Integer value = missing;
    lua_getfield(L, configuration, map);
    if (lua_istable(L, -1)) {
        // As the formatter looks it up: numbers beyond 31 bits are negative.
        lua_rawgeti(L, -1, static_cast<int>(filter));
        if (lua_istable(L, -1)) {
            lua_getfield(L, -1, field);
            value = lua_tointeger(L, -1);
        }
    }
    lua_settop(L, top);
    return value;
}

int PayloadSeverity(lua_Integer filterSeverity) {
    switch (filterSeverity) {
        case 1:
            return kSyslogNotice;
        case 3:
            return kSyslogError;
        case 4:
            return kSyslogCritical;
        default:
            return kSyslogWarning;
    }
}

// Whether the text of a packet log tells that it was denied: an entry without an action has its
// filter's, and without that the packet counts as denied.
bool IsDenied(lua_State* L, int configuration, const velm_log_entry_s& entry) {
    constexpr lua_Integer kDeny = 2;
    if (entry.log_action != 0)
        return (entry.log_action & ~LOG_ACTION_DETECT_ONLY) == LOG_ACTION_DENY;
    return entry.log_filter_id == 0 ||
           FilterField(L, configuration, "packetFilterMap", entry.log_filter_id, "filterAction",
                       kDeny) == kDeny;
}

int EntrySeverity(lua_State* L, int configuration, const velm_log_entry_s& entry) {
    const uint32_t filter = entry.log_filter_id;
    if (entry.log_reason < 0)
        return PayloadSeverity(
            FilterField(L, configuration, "payloadFilterMap", filter, "severity", 0));
    return IsDenied(L, configuration, entry) ? kSyslogWarning : kSyslogInfo;
}

// writer:Entry(text, entry, configuration): the message whose text log:SyslogFormat made.
int WriteEntry(lua_State* L) {
    auto& writer = Check<Writer>(L, kWriterType);
    size_t textLength = 0;
    size_t entryLength = 0;
    const char* text = luaL_checklstring(L, 2, &textLength);
    const char* bytes = luaL_checklstring(L, 3, &entryLength);
    luaL_checktype(L, 4, LUA_TTABLE);
    if (entryLength != sizeof(velm_log_entry_s)) return luaL_argerror(L, 3, "log entry expected");
    velm_log_entry_s entry;
    std::memcpy(&entry, bytes, sizeof(entry));
    const int severity = EntrySeverity(L, 4, entry);
    const int64_t usec = int64_t{entry.log_last_sec} * 1000000 + entry.log_last_usec % 1000000;
    writer.header.Write(writer.message, usec, severity, entry.log_reason < 0 ? "payload" : "packet",
                        {text, textLength});
    PushString(L, writer.message);
    return 1;
}

// Microseconds since the epoch, up to the year 2106, as entries have them.
int64_t CheckUsec(lua_State* L, int index) {
    constexpr lua_Number kEnd = 4294967296.0 * 1e6;
    const lua_Number usec = luaL_checknumber(L, index);
    luaL_argcheck(L, usec >= 0 && usec < kEnd, index, "microseconds since the epoch expected");
    return static_cast<int64_t>(usec);
}

// writer:Event(number, text [, usec]): the message of an agent event, of now without a time.
int WriteEvent(lua_State* L) {
    auto& writer = Check<Writer>(L, kWriterType);
    const auto number = static_cast<int>(luaL_checkinteger(L, 2));
    size_t length = 0;
    const char* text = luaL_checklstring(L, 3, &length);
    const int64_t usec = lua_isnoneornil(L, 4) ? UsecNow() : CheckUsec(L, 4);
    writer.events.Write(writer.body, number, {text, length});
    writer.header.Write(writer.message, usec, SyslogEvents::Severity(number), "event", writer.body);
    PushString(L, writer.message);
    return 1;
}

// CheckTarget(text): nil, or what is wrong with it.
int CheckTarget(lua_State* L) {
    const char* text = luaL_checkstring(L, 1);
    auto& target = PushBox<SyslogTarget>(L);
    auto& reason = PushBox<std::string>(L);
    if (ParseSyslogTarget(text, target, reason)) return 0;
    PushString(L, reason);
    return 1;
}

// CheckFacility(text): true if there is such a facility.
int CheckFacility(lua_State* L) {
    lua_pushboolean(L, FacilityNumber(luaL_checkstring(L, 1)) >= 0);
    return 1;
}

// Sender(target, queue): messages begin to leave at once.
int NewSender(lua_State* L) {
    const char* text = luaL_checkstring(L, 1);
    const unsigned int limit = CheckUnsigned(L, 2);
    auto& target = PushBox<SyslogTarget>(L);
    auto& reason = PushBox<std::string>(L);
    if (!ParseSyslogTarget(text, target, reason))
        return luaL_error(L, "%s: %s", text, reason.c_str());
    void* memory = lua_newuserdata(L, sizeof(Sender));
    new (memory) Sender(target, limit);
    luaL_setmetatable(L, kSenderType);
    return 1;
}

// sender:Post(message): never waits; false if the queue is full.
int Post(lua_State* L) {
    auto& sender = Check<Sender>(L, kSenderType);
    size_t length = 0;
    const char* message = luaL_checklstring(L, 2, &length);
    lua_pushboolean(L, sender.sender.Post({message, length}));
    return 1;
}

// sender:PostWaiting(message): waits for room, but not for ever; false if the message was dropped.
int PostWaiting(lua_State* L) {
    auto& sender = Check<Sender>(L, kSenderType);
    size_t length = 0;
    const char* message = luaL_checklstring(L, 2, &length);
    lua_pushboolean(L, sender.sender.PostWaiting({message, length}, Interrupted));
    return 1;
}

void SetCount(lua_State* L, const char* field, uint64_t value) {
    lua_pushnumber(L, static_cast<lua_Number>(value));
    lua_setfield(L, -2, field);
}

// sender:Statistics(): {sent=, dropped=, queued=, reconnects=}
int Statistics(lua_State* L) {
    const SyslogStatistics counts = Check<Sender>(L, kSenderType).sender.Statistics();
    lua_createtable(L, 0, 4);
    SetCount(L, "sent", counts.sent);
    SetCount(L, "dropped", counts.dropped);
    SetCount(L, "queued", counts.queued);
    SetCount(L, "reconnects", counts.reconnects);
    return 1;
}

// sender:Close(msec): sends what is queued, for at most this long; what is left is dropped.
int Close(lua_State* L) {
    auto& sender = Check<Sender>(L, kSenderType);
    const lua_Integer msec = luaL_checkinteger(L, 2);
    luaL_argcheck(L, msec >= 0 && msec <= kMaxCloseMsec, 2, "milliseconds of an hour expected");
    sender.sender.Close(std::chrono::milliseconds(msec));
    return 0;
}

const luaL_Reg kWriterMethods[] = {
    {"Entry", Guarded<WriteEntry>},
    {"Event", Guarded<WriteEvent>},
    {nullptr, nullptr},
};

const luaL_Reg kSenderMethods[] = {
    {"Post", Guarded<Post>},
    {"PostWaiting", Guarded<PostWaiting>},
    {"Statistics", Guarded<Statistics>},
    {"Close", Guarded<Close>},
    {nullptr, nullptr},
};

const luaL_Reg kFunctions[] = {
    {"Writer", Guarded<NewWriter>},
    {"Sender", Guarded<NewSender>},
    {"CheckTarget", Guarded<CheckTarget>},
    {"CheckFacility", Guarded<CheckFacility>},
    {nullptr, nullptr},
};

void RegisterType(lua_State* L, const char* type, const luaL_Reg* methods, lua_CFunction destroy) {
    luaL_newmetatable(L, type);
    PushLibrary(L, methods, 0);
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, destroy);
    lua_setfield(L, -2, "__gc");
    lua_pop(L, 1);
}

}  // namespace

int OpenSyslog(lua_State* L) {
    RegisterType(L, kWriterType, kWriterMethods, Destroy<Writer>);
    RegisterType(L, kSenderType, kSenderMethods, Destroy<Sender>);
    PushLibrary(L, kFunctions, 0);
    return 1;
}
