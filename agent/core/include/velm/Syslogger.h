#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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
    // The same of UTF-8 text and in a caller's buffer: at most `room` bytes are written, what does
    // not fit is cut, and there is no terminator. Return the number of bytes.
    static size_t EscapeCEFPrefix(std::string_view text, char* out, size_t room);
    static size_t EscapeCEFExtension(std::string_view text, char* out, size_t room);

    int m_Format = 2;

private:
    void ReadSettings();

    std::string m_Name;
    bool m_Cef = true;
    int m_ReadFormat = 2;
    std::string m_HostIdText = "0";
    std::string m_HostName;     // escaped
    uint64_t m_Generation = 0;  // of the settings that were read
};

}  // namespace VelmCore
