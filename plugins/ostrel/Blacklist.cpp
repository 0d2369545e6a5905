// ConfigUtils: the one place that asks the driver to block a host.

#include <memory>
#include <new>

#include <wx/log.h>

#include "ConfigUtils.h"
#include "Trace.h"
#include "kdi/kdi.h"
#include "velm/Dom.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

constexpr uint8_t kIPv4 = 4;
constexpr uint8_t kLoopbackNet = 127;

void ShowErrors(const char* command, int error) {
    const wxString reason = VelmCore::ErrnoToString(error);
    wxLogError("Driver command code failed %.64s %d (%.128s)", command, error, reason);
    VelmCore::CDom::LogAgentEvent(0, 1001, "%.64s|%d (%.128s)", command, error, reason);
}

bool IsLoopback(unsigned int ip) {
    return *reinterpret_cast<const uint8_t*>(&ip) == kLoopbackNet;  // the first byte on the wire
}

}  // namespace

bool ConfigUtils::BlacklistIp(kdi_handle_ops_s* handle, unsigned int ip, const wxString& ipText,
                              int seconds, bool& skipped) {
    skipped = true;
    if (IsLoopback(ip)) return false;
    m_Reader.Reserve();
    m_Reader.PushField(m_Index, "platformInterfaceMap");
    if (!m_Reader.IsTable(-1)) {
        OSTREL_TRACE(s_Trace, "Could not get packet filter log map");
        return false;
    }
    m_Reader.PushField(-1, ipText.utf8_str());
    const bool isOwn = m_Reader.IsTable(-1);
    m_Reader.Pop(2);
    if (isOwn) return false;
    skipped = false;

    const std::unique_ptr<kdi_blacklist_s> record(new (std::nothrow) kdi_blacklist_s());
    if (record == nullptr) return false;
    record->bl_addr_kind = kIPv4;
    record->bl_duration_msec = static_cast<uint32_t>(seconds) * 1000u;
    record->bl_ipv4_addr = ip;
    if (handle == nullptr) {
        OSTREL_TRACE(s_Trace, "KDI handle is NULL kdi_add_blacklist was not called");
        return false;
    }
    const int error = kdi_add_blacklist(handle, record.get());
    if (error != 0) ShowErrors("BLACKLIST_ADD", error);
    return error == 0;
}

}  // namespace OSTREL
