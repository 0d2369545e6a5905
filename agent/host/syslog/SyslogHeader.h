#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Severities of a syslog message.
enum SyslogSeverity : int {
    kSyslogCritical = 2,
    kSyslogError = 3,
    kSyslogWarning = 4,
    kSyslogNotice = 5,
    kSyslogInfo = 6,
};

// The number of a facility ("kern", "daemon", "local0"…), -1 for any other name.
int FacilityNumber(std::string_view name);

// `text` as it can stand in one line of any receiver: each control character is a blank, each byte
// that is no UTF-8 a question mark.
void AppendClean(std::string& out, std::string_view text);

// What stands in front of a message's text. Used on one thread.
class SyslogHeader {
public:
    // Two forms: RFC 5424, which network receivers read; and the local one, which the readers of a
    // host's own /dev/log expect: date without year, program, process.
    enum Form { Rfc5424, Local };

    // `host` is the HOSTNAME field; characters that the field can't hold are dropped.
    SyslogHeader(Form form, int facility, const std::string& host);

    // The message, header and cleaned text. `usec`: microseconds since the epoch. `kind`: the MSGID
    // field, printable ASCII without blanks, at most 32 characters.
    void Write(std::string& out, int64_t usec, int severity, std::string_view kind,
               std::string_view text);

private:
    void SetSecond(int64_t second);

    const Form m_Form;
    const int m_Facility;
    const std::string m_Host;
    const std::string m_Process;
    // The texts of one second, which many messages share.
    int64_t m_Second = -1;
    std::string m_Date;
    std::string m_Offset;
};
