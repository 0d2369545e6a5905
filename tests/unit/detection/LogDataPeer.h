#pragma once

#include "LogData.h"

namespace OSTREL {

// What the tests see of a log's scan detection.
struct LogDataPeer {
    using FlowKey = LogData::FlowKey;
    using Candidate = std::pair<FlowSets, double>;

    explicit LogDataPeer(LogData& log)
        : flows(log.m_TerminatedFlows),
          candidates(log.m_ScanCandidates),
          knownProbers(log.m_KnownProbers),
          lastTimeBinTicks(log.m_LastTimeBinTicks),
          destIpList(log.m_pDestIpList),
          destIpListV6(log.m_pDestIpListV6),
          whitelistIpList(log.m_pWhitelistIpList),
          ignoreIpList(log.m_IgnoreIpList),
          blockAttackerSeconds(log.m_BlockAttackerSeconds),
          enabledProbes(log.m_EnabledProbes),
          notifyImmediately(log.m_NotifyImmediately),
          likelihoodFactorY0(log.m_LikelihoodFactorY0),
          likelihoodFactorY1(log.m_LikelihoodFactorY1),
          configUtils(log.m_pConfigUtils) {}

    FlowBin& flows;
    std::map<FlowKey, Candidate>& candidates;
    std::map<FlowKey, unsigned int>& knownProbers;  // by address and probe type
    unsigned int& lastTimeBinTicks;
    IpSpaceList*& destIpList;
    IpSpaceList*& destIpListV6;
    IpSpaceList*& whitelistIpList;
    IpSpaceList*& ignoreIpList;
    int (&blockAttackerSeconds)[5];
    std::bitset<5>& enabledProbes;
    std::bitset<5>& notifyImmediately;
    double& likelihoodFactorY0;
    double& likelihoodFactorY1;
    ConfigUtils*& configUtils;
};

}  // namespace OSTREL
