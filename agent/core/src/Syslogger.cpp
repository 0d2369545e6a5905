#include "velm/Syslogger.h"

#include <limits>

#include "DomState.h"
#include "TraceSelf.h"
#include "Utf8.h"
#include "velm/BoundedText.h"
#include "velm/Dom.h"

namespace VelmCore {

namespace {

// Appends to a buffer and cuts what does not fit.
class Output {
public:
    Output(char* out, size_t room) : m_Begin(out), m_At(out), m_End(out + room) {}

    bool IsFull() const { return m_At == m_End; }
    void Put(char c) {
        if (m_At != m_End) *m_At++ = c;
    }
    size_t Length() const { return static_cast<size_t>(m_At - m_Begin); }

private:
    char* m_Begin;
    char* m_At;
    char* m_End;
};

}  // namespace

CSyslogger::CSyslogger(const char* name) : m_Name(name) {}

// Reading costs more than the rest of a message, so it is done when something has changed.
void CSyslogger::UpdateConfig() {
    const CDom* dom = ProcessDom();
    const uint64_t generation = dom ? dom->SettingsGeneration() : 0;
    if (generation == 0 || generation != m_Generation) ReadSettings();
    m_Generation = generation;
    m_Format = m_ReadFormat;
    VELM_CORE_TRACE("syslog settings of %s: CEF %d, format %d", m_Name, m_Cef, m_Format);
}

void CSyslogger::ReadSettings() {
    const CDom* dom = ProcessDom();
    bool cef = false;
    m_Cef = !dom || !dom->Get("velm.syslog.cef", cef) || cef;
    long long format = 0;
    const bool usable = dom && dom->Get("velm.syslog.format", format) &&
                        format >= std::numeric_limits<int>::min() &&
                        format <= std::numeric_limits<int>::max();
    m_ReadFormat = usable ? static_cast<int>(format) : 2;
    long long hostId = 0;
    if (dom) dom->Get("velm.host.id", hostId);
    m_HostIdText = std::to_string(hostId);
    const wxString hostName = dom ? dom->GetWxString("velm.host.name") : wxString();
    m_HostName = ToUtf8(EscapeCEFExtension(hostName));
}

void CSyslogger::AppendHeaderCEF(char* buffer, unsigned int size) {
    strcat_safe(buffer, size, "CEF:0|Zellora|Velm Agent|" VELM_VERSION "|");
}

void CSyslogger::AppendHostIdentityCEF(int format, char* buffer, unsigned int size) {
    strcat_safe(buffer, size, "cn1=");
    strcat_safe(buffer, size, m_HostIdText.c_str());
    strcat_safe(buffer, size, format >= 2 ? " cn1Label=Host ID dvchost=" : " dvchost=");
    strcat_safe(buffer, size, m_HostName.c_str());
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

size_t CSyslogger::EscapeCEFPrefix(std::string_view text, char* out, size_t room) {
    Output output(out, room);
    for (size_t i = 0; i < text.size() && !output.IsFull(); ++i) {
        const char c = text[i];
        if (c == '\\' || c == '|') output.Put('\\');
        output.Put(c == '\n' || c == '\r' ? ' ' : c);
    }
    return output.Length();
}

size_t CSyslogger::EscapeCEFExtension(std::string_view text, char* out, size_t room) {
    Output output(out, room);
    for (size_t i = 0; i < text.size() && !output.IsFull(); ++i) {
        const char c = text[i];
        if (c == '\\' || c == '=' || c == '\n' || c == '\r') output.Put('\\');
        output.Put(c == '\n' ? 'n' : c == '\r' ? 'r' : c);
    }
    return output.Length();
}

}  // namespace VelmCore
