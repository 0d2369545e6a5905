// The script face of LogData: argument handling, and nothing else.

#include "LogDataScript.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>

#include <wx/sstream.h>

#include "ConfigUtils.h"
#include "LogData.h"
#include "ScriptClass.h"
#include "ScriptGuard.h"
#include "Trace.h"
#include "WorkingRecord.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

constexpr const char* kClassName = "SLB.ostrel.LogData";
constexpr const char* kDomClassName = "SLB.Dom";
constexpr const char* kKdiHandleType = "kdi_handle_t*";
const wchar_t* const kTrace = L"ostrel";

static_assert(alignof(LogData) <= alignof(VelmCore::ScriptObject),
              "the object lies right behind the ScriptObject in its userdata");

// The object of a call that brings driver or configuration data.
LogData& CheckLog(lua_State* L) {
    void* object = TestObject(L, 1, kClassName);
    if (object == nullptr) {
        luaL_argerror(L, 1, "LogData object expected");
        abort();  // not reached: the error does not return
    }
    return *static_cast<LogData*>(object);
}

// The object of any other method.
LogData& CheckSelf(lua_State* L) {
    void* object = TestObject(L, 1, kClassName);
    if (object == nullptr) {
        luaL_error(L, "Expected non-null object(%s) as first argument to method call", kClassName);
        abort();  // not reached
    }
    return *static_cast<LogData*>(object);
}

// Looks at the number itself: Lua's own conversion to an integer wraps in silence.
template <typename Integer>
Integer CheckInteger(lua_State* L, int index) {
    const lua_Number value = luaL_checknumber(L, index);
    // The largest value may have no exact form as a number; the one behind it has.
    const lua_Number low = static_cast<lua_Number>(std::numeric_limits<Integer>::min());
    if (!(value >= low && value < -low)) luaL_argerror(L, index, "number out of range");
    return static_cast<Integer>(value);
}

// A string argument, or nothing for a value without a string form.
struct Bytes {
    const char* data;
    size_t length;

    const unsigned char* Data() const { return reinterpret_cast<const unsigned char*>(data); }
    unsigned int Length() const {
        return static_cast<unsigned int>(std::min<size_t>(length, UINT_MAX));
    }
};

Bytes ToBytes(lua_State* L, int index) {
    Bytes bytes = {nullptr, 0};
    bytes.data = lua_tolstring(L, index, &bytes.length);
    if (bytes.data == nullptr) bytes.length = 0;
    return bytes;
}

wxString ToText(const Bytes& bytes) {
    return bytes.data != nullptr ? wxString::FromUTF8(bytes.data, bytes.length) : wxString();
}

void PushText(lua_State* L, const wxString& text) {
    const wxScopedCharBuffer utf8 = text.utf8_str();
    PushStringSafely(L, utf8.data(), utf8.length());
}

// Lends the configuration table of a script call to the log.
class ConfigurationScope {
public:
    ConfigurationScope(LogData& log, lua_State* L, int index)
        : m_Log(log), m_Utils(L, index), m_Outer(log.SetConfigUtils(&m_Utils)) {}
    ~ConfigurationScope() { m_Log.SetConfigUtils(m_Outer); }
    ConfigurationScope(const ConfigurationScope&) = delete;
    ConfigurationScope& operator=(const ConfigurationScope&) = delete;

private:
    LogData& m_Log;
    ConfigUtils m_Utils;
    ConfigUtils*
        m_Outer;  // of a call that a metamethod of its table makes this one in; mostly null
};

int Construct(lua_State* L) {
    void* dom = TestObject(L, 2, kDomClassName);
    if (dom == nullptr) return luaL_error(L, "Expected (non-const) Object %s", kDomClassName);
    VelmCore::ScriptObject* object = NewObject(L, sizeof(LogData));
    luaL_getmetatable(L, kClassName);
    object->object = new (ObjectMemory(object)) LogData(*static_cast<VelmCore::CDom*>(dom));
    lua_setmetatable(L, -2);
    return 1;
}

int Destroy(lua_State* L) {
    // A script can reach this function with any value.
    void* log = TestObject(L, 1, kClassName);
    if (log == nullptr) return 0;
    static_cast<VelmCore::ScriptObject*>(lua_touserdata(L, 1))->object = nullptr;
    static_cast<LogData*>(log)->~LogData();
    return 0;
}

// The fixed part of an entry. A short one reads as if it went on with zero bytes.
velm_log_entry_s ToEntry(const Bytes& bytes) {
    velm_log_entry_s entry;
    const size_t given = std::min(bytes.length, sizeof entry);
    if (given > 0) memcpy(&entry, bytes.data, given);
    memset(reinterpret_cast<char*>(&entry) + given, 0, sizeof entry - given);
    return entry;
}

int WriteLogData(lua_State* L) {
    LogData& log = CheckLog(L);
    const velm_log_entry_s fixed = ToEntry(ToBytes(L, 2));
    const Bytes packetData = ToBytes(L, 3);
    const Bytes logData = ToBytes(L, 5);
    bool result;
    {
        ConfigurationScope configuration(log, L, 4);
        result = log.WriteLogData(&fixed, packetData.Data(), packetData.Length(), logData.Data(),
                                  logData.Length());
    }
    lua_pushboolean(L, result);
    return 1;
}

// Reads as an integer whatever is there: what is none is 0.
long ToLong(lua_State* L, int index) {
    return static_cast<long>(lua_tointegerx(L, index, nullptr));
}

_Driver DriverOf(long kind) {
    if (kind == 1) return DriverDpi;
    if (kind == 2) return PseudoDriverPcap;
    return DriverFirewall;
}

int GetLogData(lua_State* L) {
    LogData& log = CheckLog(L);
    const long startTime = ToLong(L, 2);
    const long endTime = std::max(ToLong(L, 3), 0L);
    const long kind = ToLong(L, 4);
    const unsigned int maxRecords = static_cast<unsigned int>(ToLong(L, 5));
    const wxString uuid = log.GetDom().GetWxString("uuid");
    wxString result;
    wxStringOutputStream out(&result, wxConvUTF8);
    log.GetLogDataStream(DriverOf(kind), startTime, endTime, uuid, maxRecords, out);
    PushText(L, result);
    if (VelmCore::LogTraceIsEnabled(kTrace)) {
        const time_t start = startTime;
        struct tm local;
        char text[32];
        const char* asText =
            localtime_r(&start, &local) != nullptr ? asctime_r(&local, text) : nullptr;
        OSTREL_TRACE(kTrace,
                     "GetLogData(%s) returning %d bytes for %s driver requested start time = %s",
                     uuid, static_cast<int>(lua_rawlen(L, -1)), kind == 0 ? "fw" : "dpi",
                     asText != nullptr ? asText : "?");
    }
    return 1;
}

int SyslogFormat(lua_State* L) {
    LogData& log = CheckLog(L);
    const velm_log_entry_s fixed = ToEntry(ToBytes(L, 2));
    const Bytes packetData = ToBytes(L, 3);
    WorkingRecord record;
    record.Assign(fixed, packetData.Data(), packetData.length, nullptr, 0);
    std::string text;
    {
        ConfigurationScope configuration(log, L, 4);
        log.SyslogFormat(&record, text);
    }
    // The text ends at its first zero byte.
    PushStringSafely(L, text.c_str(), strlen(text.c_str()));
    return 1;
}

int CacheMaintenance(lua_State* L) {
    LogData& log = CheckLog(L);
    if (!lua_istable(L, 2)) return luaL_argerror(L, 2, "lua table expected");
    bool result;
    {
        ConfigurationScope configuration(log, L, 2);
        result = log.CacheMaintenance();
    }
    lua_pushboolean(L, result);
    return 1;
}

// The word of the error is traced as well.
int SetKdiError(lua_State* L, int index, const char* word) {
    OSTREL_TRACE(kTrace, "%s", word);
    return luaL_argerror(L, index, word);
}

int SetKdi(lua_State* L) {
    OSTREL_TRACE(kTrace, "SetKdi called");
    void* log = TestObject(L, 1, kClassName);
    if (log == nullptr) return SetKdiError(L, 1, "LogData object expected");
    void* block = luaL_testudata(L, 2, kKdiHandleType);
    if (block == nullptr) return SetKdiError(L, 2, "kdi handle expected");
    kdi_handle_ops_s* handle = *static_cast<kdi_handle_ops_s**>(block);
    if (handle == nullptr) return SetKdiError(L, 2, "kdi handle already closed");
    static_cast<LogData*>(log)->SetKdi(handle);
    lua_pushinteger(L, 1);
    return 1;
}

int SetLogFileName(lua_State* L) {
    LogData& log = CheckSelf(L);
    log.SetLogFileName(ToText(ToBytes(L, 2)));
    return 0;
}

int GetLogFileName(lua_State* L) {
    PushText(L, CheckSelf(L).GetLogFileName());
    return 1;
}

int SetLogFilePath(lua_State* L) {
    LogData& log = CheckSelf(L);
    log.SetLogFilePath(ToText(ToBytes(L, 2)));
    return 0;
}

int GetLogFilePath(lua_State* L) {
    PushText(L, CheckSelf(L).GetLogFilePath());
    return 1;
}

int GetLogFileFullPath(lua_State* L) {
    PushText(L, CheckSelf(L).GetLogFileFullPath());
    return 1;
}

int SetLogFileSizeKB(lua_State* L) {
    LogData& log = CheckSelf(L);
    log.SetLogFileSizeKB(CheckInteger<long>(L, 2));
    return 0;
}

int GetLogFileSizeKB(lua_State* L) {
    lua_pushinteger(L, CheckSelf(L).GetLogFileSizeKB());
    return 1;
}

int SetNumberOfOldCopies(lua_State* L) {
    LogData& log = CheckSelf(L);
    log.SetNumberOfOldCopies(CheckInteger<int>(L, 2));
    return 0;
}

int GetNumberOfOldCopies(lua_State* L) {
    lua_pushinteger(L, CheckSelf(L).GetNumberOfOldCopies());
    return 1;
}

int FlushBufferedData(lua_State* L) {
    LogData& log = CheckSelf(L);
    lua_pushboolean(L, log.FlushBufferedData(lua_toboolean(L, 2) != 0));
    return 1;
}

int InitializeLogFile(lua_State* L) {
    lua_pushboolean(L, CheckSelf(L).InitializeLogFile());
    return 1;
}

}  // namespace

void RegisterLogData(lua_State* L) {
    if (!BeginClass(L, kClassName, Guarded<Construct>, Guarded<Destroy>)) return;
    AddMethod(L, "GetLogData", Guarded<GetLogData>);
    AddMethod(L, "WriteLogData", Guarded<WriteLogData>);
    AddMethod(L, "SyslogFormat", Guarded<SyslogFormat>);
    AddMethod(L, "SetKdi", Guarded<SetKdi>);
    AddMethod(L, "SetLogFileName", Guarded<SetLogFileName>);
    AddMethod(L, "GetLogFileName", Guarded<GetLogFileName>);
    AddMethod(L, "SetLogFilePath", Guarded<SetLogFilePath>);
    AddMethod(L, "GetLogFilePath", Guarded<GetLogFilePath>);
    AddMethod(L, "SetLogFileSizeKB", Guarded<SetLogFileSizeKB>);
    AddMethod(L, "GetLogFileSizeKB", Guarded<GetLogFileSizeKB>);
    AddMethod(L, "SetNumberOfOldCopies", Guarded<SetNumberOfOldCopies>);
    AddMethod(L, "GetNumberOfOldCopies", Guarded<GetNumberOfOldCopies>);
    AddMethod(L, "GetLogFileFullPath", Guarded<GetLogFileFullPath>);
    AddMethod(L, "FlushBufferedData", Guarded<FlushBufferedData>);
    AddMethod(L, "InitializeLogFile", Guarded<InitializeLogFile>);
    AddMethod(L, "CacheMaintenance", Guarded<CacheMaintenance>);
    lua_pop(L, 1);
}

}  // namespace OSTREL
