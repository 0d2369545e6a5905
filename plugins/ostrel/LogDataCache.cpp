// LogData: what an entry must pass to be logged, and the cache that counts repeats.

#include <wx/debug.h>
#include <wx/log.h>

#include <algorithm>

#include "ConfigUtils.h"
#include "LogData.h"
#include "Trace.h"
#include "WorkingRecord.h"
#include "velm/Clock.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

constexpr unsigned int kMaxCacheSize = 1024;
constexpr unsigned int kMinLifetimeMsec = 60000;
constexpr unsigned int kMaxLifetimeMsec = 3600000;
constexpr unsigned int kMinStaleMsec = 10000;

// Objects and not literals: both are looked up for each entry or notice, and making them allocates.
const std::string kConfigUpdated = "app.configUpdated";
const std::string kHeartbeatNow = "velm.HeartbeatNow";

}  // namespace

bool LogData::ProcessLogEntry(const std::string&, const long long&, const void* record) {
    const velm_log_entry_s& entry = static_cast<const WorkingRecord*>(record)->Entry();
    const bool isPacketLog = entry.log_reason >= 0;
    OSTREL_TRACE(s_Trace, "LogData::ProcessLogEntry()");
    unsigned long long update = 0;
    m_Dom.ConditionQuery(kConfigUpdated, update, nullptr, nullptr);
    if (update != m_LastConfigUpdate) {
        // Stored before anything else: what fails below is not tried again until the next update.
        m_LastConfigUpdate = update;
        if (!RefreshSettings(isPacketLog)) return false;
    }
    if (HandleEngineNotice(entry.log_reason)) return false;
    if (entry.log_reason == LOG_REASON_CONNTRACK_CLOSED_NORMAL ||
        entry.log_reason == LOG_REASON_CONNTRACK_CLOSED) {
        return false;
    }
    if (entry.log_dpi_flags & LOG_DPI_ANALYSIS_ONLY) {
        if (!isPacketLog) {
            OSTREL_TRACE(s_Trace, "Ignoring payload log id=%d",
                         static_cast<int>(entry.log_filter_id));
        }
        return false;
    }
    // The four bytes of an IPv4 source, whatever the entry holds there.
    const uint32_t source = entry.log_ip.v4.iph_src;
    if (HostIsInList(source, m_IgnoreIpList)) {
        if (m_TraceEnabled) {
            const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&source);
            OSTREL_TRACE(s_Trace, "Ignoring log from %d.%d.%d.%d", bytes[0], bytes[1], bytes[2],
                         bytes[3]);
        }
        return false;
    }
    return true;
}

bool LogData::RefreshSettings(bool isPacketLog) {
    OSTREL_TRACE(s_Trace, "LogData::ProcessLogEntry() - getting updated settings from config.");
    if (m_pConfigUtils == nullptr) return false;
    int size;
    int keep;
    unsigned int cacheSize;
    int cacheLifetime;
    int cacheStaletime;
    if (!m_pConfigUtils->getAgentConfigurationPacketFilterLog(size, keep, m_IgnoreIpList, cacheSize,
                                                              cacheLifetime, cacheStaletime)) {
        return false;
    }
    if (size > 0) m_LogFileSizeKB = size;
    // The configuration counts the current file, the member does not.
    if (keep > 0) m_NumberOfOldCopies = keep - 1;
    SetCacheParameters(cacheSize, static_cast<unsigned int>(cacheLifetime),
                       static_cast<unsigned int>(cacheStaletime));
    // A payload log leaves the analysis settings as they were, until the next update.
    if (!isPacketLog) return true;
    return m_pConfigUtils->getAgentConfigurationTrafficAnalysis(
        m_pDestIpList, m_pWhitelistIpList, m_BlockAttackerSeconds, m_EnabledProbes,
        m_NotifyImmediately);
}

// True if the reason is an engine notice.
bool LogData::HandleEngineNotice(int reason) {
    if (reason != LOG_REASON_ENGINE_STATE_1 && reason != LOG_REASON_ENGINE_STATE_2) return false;
    const int state = reason == LOG_REASON_ENGINE_STATE_1 ? 1 : 2;
    if (state != m_VmProtection) {
        m_VmProtection = state;
        m_Dom.Set("VmProtection", static_cast<long long>(state));
        m_Dom.ConditionRaise(kHeartbeatNow);
    }
    return true;
}

bool LogData::CacheRecord(const std::string& text, const long long& firstTime,
                          const long long& lastTime, unsigned int count) {
    {
        wxMutexLocker lock(m_CacheLock);
        LogRecordMap::iterator place = m_LogRecordMap.lower_bound(text);
        const unsigned int now = VelmCore::SystemTickCount();
        if (place == m_LogRecordMap.end() || place->first != text) {
            const CBufferedLogRecord record = {now, firstTime, now, lastTime, count};
            if (m_SpareNode) {
                m_SpareNode.key() = text;
                m_SpareNode.mapped() = record;
                place = m_LogRecordMap.insert(place, std::move(m_SpareNode));
            } else {
                place = m_LogRecordMap.emplace_hint(place, text, record);
            }
            m_Schedule.Inserted(place, now, m_CacheLifetimeMsec, m_CacheStaleTimeMsec);
            OSTREL_TRACE(
                s_Trace,
                "CacheRecord() - added %.32s record to cache. Size of cache is now %u records",
                m_DriverName, static_cast<unsigned int>(m_LogRecordMap.size()));
        } else {
            CBufferedLogRecord& record = place->second;
            record.m_Count += count;
            record.m_LastTicks = now;
            record.m_FirstTime = std::min(record.m_FirstTime, firstTime);
            record.m_LastTime = std::max(record.m_LastTime, lastTime);
            m_Schedule.NoteTime(now);
            OSTREL_TRACE(s_Trace,
                         "CacheRecord() - incremented count to %u for cached %.32s record that is "
                         "%lu msec old",
                         record.m_Count, m_DriverName,
                         static_cast<unsigned long>(now - record.m_FirstTicks));
        }
    }
    return FlushBufferedData(false);
}

bool LogData::FlushBufferedData(bool force) {
    wxMutexLocker lock(m_CacheLock);
    const unsigned int now = VelmCore::SystemTickCount();
    bool ok = true;
    if (force || !m_Schedule.IsQuiet(now)) {
        ok = FlushDueRecords(force, now);
        m_Schedule.Walked(m_LogRecordMap, now, m_CacheLifetimeMsec, m_CacheStaleTimeMsec);
    } else if (m_LogRecordMap.size() > m_CacheSize) {
        ok = WriteAndErase(m_Schedule.TakeOldest());
    }
    const bool closed = CloseAndRotateFile();
    return ok && closed;
}

// Walks the whole cache, in the order of its texts: writes what is due and, if the cache is still
// too big, the oldest of the rest.
bool LogData::FlushDueRecords(bool force, unsigned int now) {
    bool ok = true;
    LogRecordMap::iterator oldestRecord = m_LogRecordMap.end();
    unsigned int oldestAge = 0;
    unsigned int oldestIdle = 0;
    LogRecordMap::iterator next = m_LogRecordMap.begin();
    while (next != m_LogRecordMap.end()) {
        const LogRecordMap::iterator record = next++;
        if (!force) {
            const unsigned int age = now - record->second.m_FirstTicks;
            const unsigned int idle = now - record->second.m_LastTicks;
            if (age >= oldestAge && (idle >= oldestIdle || age > oldestAge)) {
                oldestRecord = record;
                oldestAge = age;
                oldestIdle = idle;
            }
            if (age < m_CacheLifetimeMsec && idle < m_CacheStaleTimeMsec) continue;
        }
        if (record == oldestRecord) {
            // The search begins anew: the records in front of this one are not looked at again.
            oldestRecord = m_LogRecordMap.end();
            oldestAge = 0;
            oldestIdle = 0;
        }
        if (!WriteAndErase(record)) ok = false;
    }
    if (m_LogRecordMap.size() <= m_CacheSize) return ok;
    if (oldestRecord == m_LogRecordMap.end()) {
        wxLogWarning(
            "FlushBufferedData() - %.32s cache is too big, but we didn't locate the oldest record!",
            m_DriverName);
        wxASSERT(oldestRecord != this->m_LogRecordMap.end());
        return ok;
    }
    return WriteAndErase(oldestRecord) && ok;
}

// The record goes, whether or not the write succeeded.
bool LogData::WriteAndErase(LogRecordMap::iterator record) {
    const bool written = WriteRecord(record->first, record->second);
    m_SpareNode = m_LogRecordMap.extract(record);
    return written;
}

void LogData::SetCacheParameters(unsigned int size, unsigned int lifetimeMsec,
                                 unsigned int staleMsec) {
    size = std::min(size, kMaxCacheSize);
    if (size == 0) {
        lifetimeMsec = 0;
        staleMsec = 0;
    } else {
        lifetimeMsec = std::min(std::max(lifetimeMsec, kMinLifetimeMsec), kMaxLifetimeMsec);
        staleMsec = staleMsec < kMinStaleMsec ? kMinStaleMsec : std::min(staleMsec, lifetimeMsec);
    }
    {
        wxMutexLocker lock(m_CacheLock);
        m_CacheSize = size;
        m_CacheLifetimeMsec = lifetimeMsec;
        m_CacheStaleTimeMsec = staleMsec;
        m_Schedule.Invalidate();
    }
    bool ok;
    size_t cached;
    do {
        ok = FlushBufferedData(false);
        wxMutexLocker lock(m_CacheLock);
        cached = m_LogRecordMap.size();
    } while (ok && cached > size);
}

}  // namespace OSTREL
