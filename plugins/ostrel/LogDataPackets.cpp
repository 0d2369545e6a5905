// LogData: what a single entry says about reconnaissance.

#include <arpa/inet.h>

#include <cstring>

#include "LogData.h"
#include "PacketSignature.h"
#include "RecordText.h"
#include "Trace.h"
#include "WorkingRecord.h"
#include "velm/ConnectionTableEntry.h"

namespace OSTREL {

namespace {

constexpr uint8_t kFingerprintFlags = TCP_FLAG_URG | TCP_FLAG_PSH | TCP_FLAG_SYN | TCP_FLAG_FIN;
constexpr uint8_t kXmasFlags = TCP_FLAG_URG | TCP_FLAG_PSH | TCP_FLAG_FIN;
constexpr uint8_t kAllFlags = 0xFF;
constexpr uint8_t kSynFinFlags = TCP_FLAG_SYN | TCP_FLAG_FIN;

bool IsZero(const pk_ipv6_addr_u& address) {
    static constexpr uint8_t kZero[sizeof address.bytes] = {};
    return memcmp(address.bytes, kZero, sizeof kZero) == 0;
}

bool IsIPv4(const velm_log_entry_s& entry) {
    return (entry.log_flags & LOG_FLAG_IPV4) != 0;
}

bool IsIPv6(const velm_log_entry_s& entry) {
    return !IsIPv4(entry) && (entry.log_flags & LOG_FLAG_IPV6) != 0;
}

}  // namespace

// The order is part of the definition: the first two signatures have SYN and FIN set as well.
CProbeConfiguration::_ProbeType SignatureOf(uint8_t tcpFlags, bool dontFragment) {
    if (tcpFlags == kFingerprintFlags || (dontFragment && tcpFlags == 0)) {
        return CProbeConfiguration::FingerprintScan;
    }
    if (tcpFlags == kAllFlags || tcpFlags == kXmasFlags) return CProbeConfiguration::XmasScan;
    if ((tcpFlags & kSynFinFlags) == kSynFinFlags) return CProbeConfiguration::SynFinScan;
    return tcpFlags == 0 ? CProbeConfiguration::NullScan : kNoProbe;
}

bool LogData::AnalyzeLogEntry(const std::string&, const long long&, const void* record) {
    const velm_log_entry_s& entry = static_cast<const WorkingRecord*>(record)->Entry();
    if (IsOfInterest(entry) && !IsCraftedPacket(entry)) CountFlow(entry);
    return true;
}

// True if the entry can be a probe at all: inbound, with ports, of a source and a destination that
// the configuration does not leave out.
bool LogData::IsOfInterest(const velm_log_entry_s& entry) {
    const wchar_t* reason = nullptr;
    if (entry.log_reason < 0) {
        reason = L"AnalyzeLogEntry - returning because it not packet";
    } else if (entry.log_flags & LOG_FLAG_OUTGOING) {
        reason = L"AnalyzeLogEntry - returning because it is Outgoing";
    } else if (!HasPorts(&entry)) {
        reason = L"AnalyzeLogEntry - returning because protocol does not use port numbers";
    } else if (entry.log_transport.tcp.tcph_sport == 0 && entry.log_transport.tcp.tcph_dport == 0) {
        reason = L"AnalyzeLogEntry - returning because both port fields are 0";
    } else if (IsIPv4(entry) && entry.log_ip.v4.iph_src == 0 && entry.log_ip.v4.iph_dest == 0) {
        reason = L"AnalyzeLogEntry - returning because iph_src and iph_dest are both 0";
    } else if (IsIPv6(entry) && IsZero(entry.log_ip.v6.ipv6h_src) &&
               IsZero(entry.log_ip.v6.ipv6h_dest)) {
        reason = L"AnalyzeLogEntry - returning because ipv6h_src is zero";
    } else if (!IsAnyProbeEnabled()) {
        reason = L"AnalyzeLogEntry - returning because no probe configs are enabled";
    } else if (IsIPv4(entry) && IsSourceExempt(entry)) {
        reason =
            L"AnalyzeLogEntry - returning because the ipv4 packet isn't from a host we care about";
    } else if (IsIPv4(entry) && !IsDestinationWatched(entry)) {
        reason =
            L"AnalyzeLogEntry - returning because the ipv4 packet isn't destined for a host we "
            L"care "
            L"about";
    } else if (IsIPv6(entry) && HasIPv6Destinations()) {
        reason =
            L"AnalyzeLogEntry - returning because the ipv6 packet isn't destined for a host we "
            L"care "
            L"about";
    } else if (entry.log_reason == LOG_REASON_CONNTRACK_CLOSED_NORMAL) {
        reason = L"AnalyzeLogEntry - returning because log_reason_conntrack_closed_normal";
    }
    if (reason == nullptr) return true;
    OSTREL_TRACE(s_TraceScan, reason);
    return false;
}

bool LogData::IsAnyProbeEnabled() {
    wxMutexLocker lock(m_ProbeConfigLock);
    return m_EnabledProbes.any();
}

bool LogData::IsSourceExempt(const velm_log_entry_s& entry) {
    wxMutexLocker lock(m_WhitelistIpListLock);
    return HostIsInList(entry.log_ip.v4.iph_src, m_pWhitelistIpList);
}

bool LogData::IsDestinationWatched(const velm_log_entry_s& entry) {
    wxMutexLocker lock(m_DestIpListLock);
    return m_pDestIpList == nullptr || HostIsInList(entry.log_ip.v4.iph_dest, m_pDestIpList);
}

// A list of IPv6 destinations would turn every IPv6 entry away, since none is ever found in it.
bool LogData::HasIPv6Destinations() {
    wxMutexLocker lock(m_DestIpListV6Lock);
    return m_pDestIpListV6 != nullptr;
}

// True if the entry is dealt with: it is a crafted TCP packet of an enabled type, or its flag byte
// is one that the settings leave out of the flow statistic.
bool LogData::IsCraftedPacket(const velm_log_entry_s& entry) {
    if (entry.log_reason == LOG_REASON_CONNTRACK_CLOSED || !IsIPv4(entry) ||
        entry.log_ip.v4.iph_proto != IP_PROTO_TCP) {
        return false;
    }
    const uint8_t flags = entry.log_transport.tcp.tcph_flags;
    const CProbeConfiguration::_ProbeType probe =
        SignatureOf(flags, FragmentsOf(entry).dontFragment);
    if (probe != kNoProbe) {
        TraceSignature(probe);
        return WriteProbeEvent(probe, entry.log_ip.v4.iph_src, entry.log_ip.v4.iph_proto, nullptr);
    }
    if (m_IgnoreTcpFlags.count(flags) == 0) return false;
    if (m_TraceScan) OSTREL_TRACE(s_TraceScan, "Ignoring packet with TCP flags of 0x%X.", flags);
    return true;
}

void LogData::TraceSignature(CProbeConfiguration::_ProbeType probe) {
    static const wchar_t* const kNames[] = {L"fingerprint", L"", L"NULL", L"SYN-FIN", L"Xmas"};
    OSTREL_TRACE(s_TraceScan, "AnalyzeLogEntry - %s scan", kNames[probe]);
}

// Hands an entry that says something about its source to the flow statistic, which is IPv4 only.
void LogData::CountFlow(const velm_log_entry_s& entry) {
    if ((entry.log_action & ~LOG_ACTION_DETECT_ONLY) == LOG_ACTION_LOG) return;
    if (entry.log_reason == LOG_REASON_DROPPED_RETRANSMIT) return;
    if (entry.log_flags2 & LOG_FLAG2_SRC_IN_HISTORY) {
        if (m_TraceScan) {
            OSTREL_TRACE(s_TraceScan, "Ignoring packet with bSrcIPInHistoryList set.");
        }
        return;
    }
    if (!IsIPv4(entry)) return;
    VelmCore::CConnectionTableEntry flow;
    flow.destAddress = entry.log_ip.v4.iph_dest;
    flow.srcAddress = entry.log_ip.v4.iph_src;
    flow.destPort = ntohs(entry.log_transport.udp.udph_dport);
    flow.srcPort = ntohs(entry.log_transport.udp.udph_sport);
    HandleTerminatedFlow(flow, entry.log_ip.v4.iph_proto);
}

}  // namespace OSTREL
