#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "RandomRecord.h"
#include "ReferenceAddress.h"
#include "ReferenceFiles.h"

namespace Reference {

// A configuration as the log reads it. What is absent reads as 0.
struct Configuration {
    bool hasPacketFilterLog = true;
    std::optional<int> size;
    std::optional<int> keep;
    std::optional<int> cacheSize;
    std::optional<int> cacheLifetime;
    std::optional<int> cacheStaletime;
    std::optional<std::string> ignoredItems;
    bool hasTrafficAnalysis = true;
    bool hasProbes = true;
    std::map<int, int> interfaceIds;  // configured ID by the driver's index
};

// A log in the plainest way: a map of records that is walked whole at each flush, and files in
// memory.
class Log {
public:
    explicit Log(const std::string& directory) : files(directory, traces) {}

    // `ticks` is the clock. Results are those of the log's operations.
    bool Write(const Entry& entry, const Configuration& configuration, uint32_t ticks);
    bool CacheRecord(const std::string& text, long long firstTime, long long lastTime,
                     uint32_t count, uint32_t ticks);
    bool Flush(bool force, uint32_t ticks);
    void SetCacheParameters(uint32_t size, uint32_t lifetime, uint32_t stale, uint32_t ticks);

    Traces traces;
    Files files;
    bool isConfigurationNew = true;  // the condition was raised since the last look
    unsigned int heartbeats = 0;     // times that the heartbeat was asked for
    size_t CachedRecords() const { return m_Records.size(); }

private:
    struct Record {
        uint32_t firstTicks;
        long long firstTime;
        uint32_t lastTicks;
        long long lastTime;
        uint32_t count;
    };
    typedef std::map<std::string, Record> Records;

    int InterfaceId(int index, const Configuration& configuration);
    bool IsToBeLogged(const Entry& entry, const Configuration& configuration, uint32_t ticks);
    bool Refresh(bool isPacketLog, const Configuration& configuration, uint32_t ticks);
    void ReadIgnored(const Configuration& configuration);
    void Notice(int state);
    bool WriteLine(const std::string& text, const Record& record);

    Records m_Records;
    uint32_t m_Size = 128;
    uint32_t m_Lifetime = 1800000;
    uint32_t m_Stale = 900000;
    std::optional<std::vector<AddressEntry>> m_Ignored;
    int m_State = 0;
    int m_LastIndex = -1;
    int m_LastId = -1;
};

}  // namespace Reference
