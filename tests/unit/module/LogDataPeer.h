#pragma once

#include "LogData.h"

namespace OSTREL {

// What the tests see of a log's private state.
struct LogDataPeer {
    using Cache = LogData::LogRecordMap;

    explicit LogDataPeer(LogData& log)
        : cache(log.m_LogRecordMap),
          cacheSize(log.m_CacheSize),
          cacheLifetimeMsec(log.m_CacheLifetimeMsec),
          cacheStaleTimeMsec(log.m_CacheStaleTimeMsec),
          logFile(log.m_LogFile),
          outOfSpace(log.m_OutOfSpace),
          rawRecords(log.m_RawRecords),
          lastConfigUpdate(log.m_LastConfigUpdate),
          lastCorruptFile(log.m_LastCorruptFile),
          firstRetrieval(log.m_FirstRetrieval),
          lastLineKeys(log.m_LastLineKeys),
          eventQueue(log.m_EventQueue),
          configUtils(log.m_pConfigUtils),
          driverPrefix(log.m_DriverPrefix),
          vmProtection(log.m_VmProtection),
          kdiHandle(log.m_KdiHandle),
          lastInterfaceIndex(log.m_LastInterfaceIndex),
          lastInterfaceId(log.m_LastInterfaceId),
          ignoreIpList(log.m_IgnoreIpList),
          destIpList(log.m_pDestIpList),
          whitelistIpList(log.m_pWhitelistIpList),
          blockAttackerSeconds(log.m_BlockAttackerSeconds),
          enabledProbes(log.m_EnabledProbes),
          notifyImmediately(log.m_NotifyImmediately),
          ignoreTcpFlags(log.m_IgnoreTcpFlags),
          likelihoodFactorY0(log.m_LikelihoodFactorY0),
          likelihoodFactorY1(log.m_LikelihoodFactorY1),
          scanningIpsRetentionMsec(log.m_ScanningIpsRetentionMsec),
          timeBinMsec(log.m_TimeBinMsec),
          scanIpsPerPort(log.m_ScanIpsPerPort),
          scanPortsPerIp(log.m_ScanPortsPerIp),
          scanPortsPerIpFlagNow(log.m_ScanPortsPerIpFlagNow),
          scanLikelihoodRatioFloor(log.m_ScanLikelihoodRatioFloor),
          scanLikelihoodRatioCeiling(log.m_ScanLikelihoodRatioCeiling) {}

    // Frees the address lists, which the log itself never does.
    void FreeLists() {
        for (IpSpaceList** list : {&ignoreIpList, &destIpList, &whitelistIpList}) {
            delete *list;
            *list = nullptr;
        }
    }

    Cache& cache;
    unsigned int& cacheSize;
    unsigned int& cacheLifetimeMsec;
    unsigned int& cacheStaleTimeMsec;
    wxFile& logFile;
    bool& outOfSpace;
    bool& rawRecords;
    unsigned long long& lastConfigUpdate;
    wxString& lastCorruptFile;
    bool (&firstRetrieval)[3];
    const char* (&lastLineKeys)[3];
    std::deque<std::string>& eventQueue;
    ConfigUtils*& configUtils;
    wxString& driverPrefix;
    int& vmProtection;
    kdi_handle_ops_s*& kdiHandle;
    int& lastInterfaceIndex;
    int& lastInterfaceId;
    IpSpaceList*& ignoreIpList;
    IpSpaceList*& destIpList;
    IpSpaceList*& whitelistIpList;
    int (&blockAttackerSeconds)[5];
    std::bitset<5>& enabledProbes;
    std::bitset<5>& notifyImmediately;
    std::set<uint8_t>& ignoreTcpFlags;
    double& likelihoodFactorY0;
    double& likelihoodFactorY1;
    unsigned int& scanningIpsRetentionMsec;
    unsigned int& timeBinMsec;
    double& scanIpsPerPort;
    double& scanPortsPerIp;
    double& scanPortsPerIpFlagNow;
    double& scanLikelihoodRatioFloor;
    double& scanLikelihoodRatioCeiling;
};

}  // namespace OSTREL
