#pragma once

#include <string>

#include <wx/string.h>

#include "velm/Export.h"

namespace VelmCore {

// Syslog settings and the texts of the CEF header that belong to the agent, not to a message. Used
// by one thread at a time.
class VELM_API CSyslogger {
public:
    explicit CSyslogger(const char* name);

    // Reads the settings anew: "velm.syslog.cef" (boolean, true if absent), "velm.syslog.format"
    // (number, 2 if absent), "velm.host.id" (number), "velm.host.name".
    void UpdateConfig();
    bool GetSyslogFormatCEF() const { return m_Cef; }

    // Appends the header's columns in front of the event number, each with its bar. The buffer
    // holds text; `size` is that of the whole buffer.
    void AppendHeaderCEF(char* buffer, unsigned int size);
    // Appends the host's identity, the first items of the extension, without a leading blank.
    void AppendHostIdentityCEF(int format, char* buffer, unsigned int size);
    // Escapes backslash and bar; line ends become blanks.
    wxString EscapeCEFPrefix(const wxString& text);
    // Escapes backslash, equals sign, line feed and carriage return.
    wxString EscapeCEFExtension(const wxString& text);

    int m_Format = 2;

private:
    std::string m_Name;
    bool m_Cef = true;
    long long m_HostId = 0;
    wxString m_HostName;
};

}  // namespace VelmCore
