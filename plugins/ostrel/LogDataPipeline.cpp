// LogData: the way of one entry, from the driver's bytes to the cache.

#include <wx/utils.h>

#include "LogData.h"
#include "Trace.h"
#include "WorkingRecord.h"
#include "velm/Clock.h"

namespace OSTREL {

bool LogData::WriteLogData(const velm_log_entry_s* entry, const unsigned char* packetData,
                           unsigned int packetDataLen, const unsigned char* logData,
                           unsigned int logDataLen) {
    OSTREL_TRACE(s_Trace, "WriteLogData(packetDataLen=%u)", packetDataLen);
    WorkingRecord record;
    record.Assign(*entry, packetData, packetDataLen, logData, logDataLen);

    // The memory of the last text serves again. It is taken out of the object, since a metamethod
    // of the configuration table may call in here anew.
    std::string text;
    text.swap(m_Text);
    long long firstTime;
    long long lastTime;
    const bool ok = BinaryToAscii(&record, text, firstTime, lastTime) &&
                    ProcessLogData(text, firstTime, &record) &&
                    CacheRecord(text, firstTime, lastTime, entry->log_repeat_count);
    text.swap(m_Text);
    return ok;
}

bool LogData::ProcessLogData(const std::string& text, const long long& firstTime,
                             const void* record) {
    if (m_TraceEnabled) OSTREL_TRACE(s_Trace, "ProcessLogData() for %.32s", m_DriverName);
    if (text.empty()) return false;
    bool ok = ProcessLogEntry(text, firstTime, record);
    if (!ok) OSTREL_TRACE(s_Trace, "ProcessLogEntry returned false");
    // Entries that the log is not to show are analysed as well, and with the new settings.
    if (!AnalyzeLogEntry(text, firstTime, record)) {
        ok = false;
        OSTREL_TRACE(s_Trace, "AnalyzeLogEntry returned false");
    }
    OSTREL_TRACE(s_Trace, "ProcessLogEntry returning %d", ok);
    return ok;
}

void LogData::DrainQueue(unsigned int msec) {
    OSTREL_TRACE(s_Trace,
                 "DrainQueue(): waiting up to %u msec for our queue of events awaiting formatting "
                 "to empty",
                 msec);
    const unsigned int start = VelmCore::SystemTickCount();
    const unsigned int step = msec / 16;
    while (VelmCore::SystemTickCount() - start < msec) {
        {
            wxMutexLocker lock(m_QueueLock);
            if (m_EventQueue.empty()) return;
        }
        wxMilliSleep(step);
    }
}

}  // namespace OSTREL
