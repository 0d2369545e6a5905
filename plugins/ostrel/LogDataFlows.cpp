// LogData: the statistic of what each source has touched, and the test whether it is a scanner.

#include "AddressText.h"
#include "LogData.h"
#include "Trace.h"
#include "velm/Clock.h"
#include "velm/ConnectionTableEntry.h"

namespace OSTREL {

namespace {

constexpr CProbeConfiguration::_ProbeType kScan = CProbeConfiguration::HostOrPortScan;

}  // namespace

void LogData::HandleTerminatedFlow(const VelmCore::CConnectionTableEntry& flow, uint8_t protocol) {
    OSTREL_TRACE(s_TraceScan, "HandleTerminatedFlow has been called");
    wxMutexLocker lock(m_TerminatedFlowsLock);
    m_TerminatedFlows.Add(flow.srcAddress, protocol, flow.destAddress, flow.destPort);
    if (m_TraceScan && VelmCore::LogTraceIsEnabled(s_TraceScan)) {
        const FlowSets touched = m_TerminatedFlows.TouchedBy(flow.srcAddress, protocol);
        OSTREL_TRACE(
            s_TraceScan, "Source IP %s protocol %d has visited %u unique IPs and %u unique ports.",
            AddressText(flow.srcAddress), protocol, static_cast<unsigned int>(touched.first.size()),
            static_cast<unsigned int>(touched.second.size()));
    }
}

bool LogData::CacheMaintenance() {
    const unsigned int now = VelmCore::SystemTickCount();
    OSTREL_TRACE(s_TraceScan,
                 "CacheMaintenance called ticksNow - m_LastTimeBinTicks %d m_TimeBinMsec %d",
                 static_cast<int>(now - m_LastTimeBinTicks), static_cast<int>(m_TimeBinMsec));
    if (now - m_LastTimeBinTicks > m_TimeBinMsec) {
        if (!CloseTimeBin()) DecayCandidates();
        m_LastTimeBinTicks = now;
    }
    ForgetProbers(VelmCore::SystemTickCount());
    wxMutexLocker lock(m_TerminatedFlowsLock);
    return !m_TerminatedFlows.IsEmpty();
}

// Turns each source's flows of the bin into an observation. False if the bin was quiet.
bool LogData::CloseTimeBin() {
    wxMutexLocker lock(m_TerminatedFlowsLock);
    OSTREL_TRACE(s_TraceScan, "time bin interval has expired number of terminated flows is %d",
                 static_cast<int>(m_TerminatedFlows.CountSources()));
    if (m_TerminatedFlows.IsEmpty()) return false;
    while (!m_TerminatedFlows.IsEmpty()) {
        // Taken out first: a report reads the configuration, whose metamethods may call this log.
        const FlowBin::Source source = m_TerminatedFlows.First();
        m_TerminatedFlows.EraseFirst();
        AnalyzeTerminatedFlow(source);
    }
    return true;
}

// A bin in which no source at all had a flow is a harmless observation for every candidate. In any
// other bin a candidate without flows of its own is left as it is.
void LogData::DecayCandidates() {
    wxMutexLocker lock(m_ScanCandidatesLock);
    OSTREL_TRACE(s_TraceScan, "Updating the scan likelihoodRations size %d",
                 static_cast<int>(m_ScanCandidates.size()));
    ScanCandidates::iterator candidate = m_ScanCandidates.begin();
    while (candidate != m_ScanCandidates.end()) {
        const FlowKey key = candidate->first;
        UpdateLikelihoodRatio(candidate, false);
        candidate = m_ScanCandidates.upper_bound(key);
    }
}

void LogData::ForgetProbers(unsigned int now) {
    wxMutexLocker lock(m_KnownProbersLock);
    OSTREL_TRACE(s_TraceScan, "Checking probing Ips %d", static_cast<int>(m_KnownProbers.size()));
    KnownProbers::iterator next = m_KnownProbers.begin();
    while (next != m_KnownProbers.end()) {
        const KnownProbers::iterator prober = next++;
        // The difference is signed, so that an expiry behind the clock's wrap lies in the future.
        if (static_cast<int32_t>(prober->second - now) > 0) continue;
        if (m_TraceScan) {
            const auto type = static_cast<CProbeConfiguration::_ProbeType>(prober->first.second);
            OSTREL_TRACE(s_TraceScan,
                         "Removing IP %s from list of known probing/attacking hosts for attack "
                         "%.64s.",
                         AddressText(prober->first.first), CProbeConfiguration::toString(type));
        }
        m_KnownProbers.erase(prober);
    }
}

void LogData::AnalyzeTerminatedFlow(const FlowBin::Source& source) {
    OSTREL_TRACE(s_TraceScan, "AnalyzeTerminatedFlow");
    const double numIps = static_cast<double>(source.destinations.size());
    const double numPorts = static_cast<double>(source.ports.size());
    if (!KeepCandidates() || IsKnownProber(source.address, kScan)) return;

    const double portsPerIp = numPorts / numIps;
    const bool scanLike = portsPerIp > m_ScanPortsPerIp || numIps / numPorts > m_ScanIpsPerPort;
    const FlowKey key(source.address, source.protocol);
    wxMutexLocker lock(m_ScanCandidatesLock);
    const ScanCandidates::iterator candidate = m_ScanCandidates.find(key);
    const bool isCandidate = candidate != m_ScanCandidates.end();
    if (portsPerIp > m_ScanPortsPerIpFlagNow) {
        OSTREL_TRACE(s_TraceScan,
                     "AnalyzeTerminatedFlow: exceeded threshold for port-scanner numPorts = %f, "
                     "numIps = %f, PortsPerIpFlagNow = %f",
                     numPorts, numIps, m_ScanPortsPerIpFlagNow);
        ReportScanner(key, source.destinations.size(), source.ports.size());
        m_ScanCandidates.erase(key);
    } else if (isCandidate) {
        FlowSets& collected = candidate->second.first;
        collected.first.insert(source.destinations.begin(), source.destinations.end());
        collected.second.insert(source.ports.begin(), source.ports.end());
        UpdateLikelihoodRatio(candidate, scanLike);
    } else if (scanLike) {
        // The first update of a ratio of 1. The ceiling is not tested here.
        m_ScanCandidates.emplace(key, std::make_pair(source.Touched(), m_LikelihoodFactorY1));
    }
}

// With scans not looked for, the candidates are forgotten. False then.
bool LogData::KeepCandidates() {
    {
        wxMutexLocker lock(m_ProbeConfigLock);
        if (m_EnabledProbes.test(kScan)) return true;
    }
    // Not inside the other lock: a report takes the two in the opposite order.
    wxMutexLocker lock(m_ScanCandidatesLock);
    m_ScanCandidates.clear();
    return false;
}

bool LogData::IsKnownProber(uint32_t ip, CProbeConfiguration::_ProbeType type) {
    wxMutexLocker lock(m_KnownProbersLock);
    return m_KnownProbers.count(ProberKey(ip, static_cast<uint8_t>(type))) != 0;
}

void LogData::ReportScanner(const FlowKey& key, size_t numIps, size_t numPorts) {
    WriteProbeEvent(kScan, key.first, key.second, L"%lu|%lu", static_cast<unsigned long>(numIps),
                    static_cast<unsigned long>(numPorts));
}

// One step of the sequential test. Erases the candidate if it is decided. The caller holds
// m_ScanCandidatesLock.
void LogData::UpdateLikelihoodRatio(ScanCandidates::iterator candidate, bool scanLike) {
    const uint32_t ip = candidate->first.first;
    const uint8_t protocol = candidate->first.second;
    double& ratio = candidate->second.second;
    ratio *= scanLike ? m_LikelihoodFactorY1 : m_LikelihoodFactorY0;
    if (m_TraceScan) {
        OSTREL_TRACE(s_TraceScan, "Likelihood ratio for IP %s protocol %d is currently %f",
                     AddressText(ip), protocol, ratio);
    }
    if (ratio > m_ScanLikelihoodRatioCeiling) {
        // Taken out first: the report may come back to this log.
        const ScanCandidates::node_type decided = m_ScanCandidates.extract(candidate);
        const FlowSets& touched = decided.mapped().first;
        ReportScanner(decided.key(), touched.first.size(), touched.second.size());
    } else if (m_ScanLikelihoodRatioFloor > ratio) {
        if (m_TraceScan) {
            OSTREL_TRACE(s_TraceScan,
                         "Removed IP %s protocol %d from consideration as a host/port scanner",
                         AddressText(ip), protocol);
        }
        m_ScanCandidates.erase(candidate);
    }
}

}  // namespace OSTREL
