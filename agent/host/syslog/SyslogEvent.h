#pragma once

#include <string>

#include "velm/Syslogger.h"

// Agent events, and what of an event or an entry decides its severity. Used on one thread.
class SyslogEvents {
public:
    // `hostId` is this host's number in messages of the plain family.
    explicit SyslogEvents(int hostId) : m_HostId(hostId) {}

    // The text of an event's message, in the family and format that the settings name. `text` is
    // UTF-8; fields in it are separated by vertical bars.
    void Write(std::string& out, int number, const std::string& text);

    // Of the syslog message.
    static int Severity(int number);

private:
    void WriteCef(std::string& out, int number, const std::string& text);
    void WritePlain(std::string& out, int number, const std::string& text) const;

    const int m_HostId;
    VelmCore::CSyslogger m_Syslogger{"events"};
};
