// LogData: what follows when reconnaissance was recognised.

#include <cstdarg>
#include <stdexcept>

#include "AddressText.h"
#include "ConfigUtils.h"
#include "LogData.h"
#include "Trace.h"
#include "velm/Clock.h"
#include "velm/Dom.h"

namespace OSTREL {

namespace {

constexpr int kFirstProbeEvent = 7000;

// The numbers of the event's tail. Only numbers and fixed words may reach an event's text here,
// since the text is a format once more when the event is written.
wxString Tail(const wchar_t* format, va_list arguments) {
    return "|" + wxString::FormatV(format, arguments);
}

}  // namespace

bool LogData::WriteProbeEvent(CProbeConfiguration::_ProbeType type, uint32_t ip, uint8_t protocol,
                              const wchar_t* format, ...) {
    OSTREL_TRACE(s_TraceScan, "WriteProbeEvent");
    bool notify;
    {
        wxMutexLocker lock(m_ProbeConfigLock);
        if (!m_EnabledProbes.test(static_cast<size_t>(type))) {
            OSTREL_TRACE(s_TraceScan, "ProbeType was Not enabled");
            return false;
        }
        notify = m_NotifyImmediately.test(static_cast<size_t>(type));
    }
    if (WasReported(type, ip)) return true;

    const int seconds = m_BlockAttackerSeconds[type];
    const wxString ipText = AddressText(ip);
    Remember(type, ip, seconds);
    const bool skipped = seconds > 0 && Block(ip, ipText, seconds);

    wxString text = wxString::Format("%.64s|%s|%d|%d", CProbeConfiguration::toString(type), ipText,
                                     protocol, skipped ? 0 : seconds);
    if (format != nullptr) {
        va_list arguments;
        va_start(arguments, format);
        text += Tail(format, arguments);
        va_end(arguments);
    }
    const int number = kFirstProbeEvent + type;
    m_Dom.AgentEventWrite(number, text);
    OSTREL_TRACE(s_TraceScan, "WriteProbeEvent writing agent event %d-%s", number, text);
    if (notify) m_Dom.ConditionRaise("velm.HeartbeatNow");
    return true;
}

// True if the host needs no event of this type now.
bool LogData::WasReported(CProbeConfiguration::_ProbeType type, uint32_t ip) {
    wxMutexLocker lock(m_KnownProbersLock);
    if (m_KnownProbers.count(ProberKey(ip, static_cast<uint8_t>(type))) != 0) {
        OSTREL_TRACE(s_TraceScan, "ProbeType was already logged");
        return true;
    }
    // A fingerprint scan sends packets of these two types as well.
    const bool isPartOfFingerprint =
        type == CProbeConfiguration::NullScan || type == CProbeConfiguration::XmasScan;
    if (isPartOfFingerprint &&
        m_KnownProbers.count(ProberKey(ip, CProbeConfiguration::FingerprintScan)) != 0) {
        OSTREL_TRACE(s_TraceScan,
                     "ProbeType was already logged because we already detected fingerprint scan");
        return true;
    }
    return false;
}

// The module stays quiet about a host for as long as it is blocked.
void LogData::Remember(CProbeConfiguration::_ProbeType type, uint32_t ip, int seconds) {
    const unsigned int retention =
        seconds > 0 ? static_cast<unsigned int>(seconds) * 1000u : m_ScanningIpsRetentionMsec;
    const unsigned int expiry = VelmCore::SystemTickCount() + retention;
    wxMutexLocker lock(m_KnownProbersLock);
    m_KnownProbers.emplace(ProberKey(ip, static_cast<uint8_t>(type)), expiry);
}

// Has the driver block the host. True if the host is exempt and was not blocked for that reason.
bool LogData::Block(uint32_t ip, const wxString& ipText, int seconds) {
    OSTREL_TRACE(s_TraceScan, "Adding to the blacklist %s", ipText);
    bool skipped = false;
    if (m_KdiHandle != nullptr && m_pConfigUtils != nullptr) {
        m_pConfigUtils->BlacklistIp(m_KdiHandle, ip, ipText, seconds, skipped);
    }
    return skipped;
}

}  // namespace OSTREL
