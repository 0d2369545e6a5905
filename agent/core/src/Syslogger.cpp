#include "velm/Syslogger.h"

#include <limits>

#include "DomState.h"
#include "TraceSelf.h"
#include "Utf8.h"
#include "velm/BoundedText.h"
#include "velm/Dom.h"

namespace VelmCore {

CSyslogger::CSyslogger(const char* name) : m_Name(name) {}

void CSyslogger::UpdateConfig() {
    const CDom* dom = ProcessDom();
    bool cef = false;
    m_Cef = !dom || !dom->Get("velm.syslog.cef", cef) || cef;
    long long format = 0;
    const bool usable = dom && dom->Get("velm.syslog.format", format) &&
                        format >= std::numeric_limits<int>::min() &&
                        format <= std::numeric_limits<int>::max();
    m_Format = usable ? static_cast<int>(format) : 2;
    m_HostId = 0;
    if (dom) dom->Get("velm.host.id", m_HostId);
    m_HostName = dom ? dom->GetWxString("velm.host.name") : wxString();
    VELM_CORE_TRACE("syslog settings of %s: CEF %d, format %d", m_Name, m_Cef, m_Format);
}

void CSyslogger::AppendHeaderCEF(char* buffer, unsigned int size) {
    strcat_safe(buffer, size, "CEF:0|Zellora|Velm Agent|" VELM_VERSION "|");
}

void CSyslogger::AppendHostIdentityCEF(int format, char* buffer, unsigned int size) {
    snprintfcat(buffer, size, "cn1=%lld", m_HostId);
    if (format >= 2) strcat_safe(buffer, size, " cn1Label=Host ID");
    strcat_safe(buffer, size, " dvchost=");
    strcat_safe(buffer, size, ToUtf8(EscapeCEFExtension(m_HostName)).c_str());
}

wxString CSyslogger::EscapeCEFPrefix(const wxString& text) {
    wxString escaped;
    escaped.reserve(text.length());
    for (const wxUniChar c : text) {
        if (c == '\\' || c == '|') escaped += '\\';
        escaped += (c == '\n' || c == '\r') ? wxUniChar(' ') : c;
    }
    return escaped;
}

wxString CSyslogger::EscapeCEFExtension(const wxString& text) {
    wxString escaped;
    escaped.reserve(text.length());
    for (const wxUniChar c : text) {
        if (c == '\n') {
            escaped += "\\n";
        } else if (c == '\r') {
            escaped += "\\r";
        } else {
            if (c == '\\' || c == '=') escaped += '\\';
            escaped += c;
        }
    }
    return escaped;
}

}  // namespace VelmCore
