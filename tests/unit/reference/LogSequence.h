#pragma once

#include <cstdint>
#include <lua.hpp>
#include <memory>
#include <string>
#include <vector>

#include "LogData.h"
#include "Random.h"
#include "ReferenceLog.h"
#include "TempDirectory.h"

namespace VelmCore {
class CDom;
}

namespace Reference {

// One random sequence of calls, made to a log and to its reference alike. Differences are reported
// as test failures.
class LogSequence {
public:
    // With `tell` each step is written to standard error.
    LogSequence(VelmCore::CDom& dom, uint64_t seed, bool tell);
    ~LogSequence();

    void Run();

private:
    void Step();
    void Tell(const std::string& step);

    // Calls.
    void WriteEntry();
    void CacheDirectly();
    void Flush(bool force);
    void InitializeLogFile();
    void Reconfigure();
    void RaiseUpdate();
    void ChangeSettings();

    // The world around the log.
    void MoveClock();
    void DisturbFiles();
    void PlantFile(const std::string& name);
    void ToggleFolder(const std::string& name);
    void ReplaceDirectory();

    Entry MakeEntry();
    Configuration MakeConfiguration();
    void UseConfiguration();
    std::string MakeFileName();

    void CheckResult(bool actual, bool expected);
    void CheckTraces();
    void CheckFiles();

    Random m_Random;
    bool m_Tell;
    VelmCore::CDom& m_Dom;
    TempDirectory m_Temp;
    std::string m_Directory;
    OSTREL::LogData m_Log;
    Log m_Reference;
    Configuration m_Configuration;
    // The configuration's table lies at index 1.
    std::unique_ptr<lua_State, decltype(&lua_close)> m_State{luaL_newstate(), lua_close};
    std::vector<Entry> m_Kinds;  // distinct texts of the sequence
    uint32_t m_Ticks;
    unsigned long long m_Heartbeat = 0;
    std::vector<std::string> m_Secured;
};

}  // namespace Reference
