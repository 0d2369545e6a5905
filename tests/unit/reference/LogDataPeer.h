#pragma once

#include "LogData.h"

namespace OSTREL {

// What the tests see of a log's inside.
struct LogDataPeer {
    // A log never frees its address lists. Gives up the present ones.
    static void FreeLists(LogData& log) {
        for (IpSpaceList** list :
             {&log.m_IgnoreIpList, &log.m_pDestIpList, &log.m_pWhitelistIpList}) {
            delete *list;
            *list = nullptr;
        }
    }
    static size_t CachedRecords(const LogData& log) { return log.m_LogRecordMap.size(); }
    static bool HasConfiguration(const LogData& log) { return log.m_pConfigUtils != nullptr; }
};

}  // namespace OSTREL
