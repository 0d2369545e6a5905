#pragma once

#include <string>

// Where messages go.
struct SyslogTarget {
    enum Kind { Udp, Tcp, Unix };

    Kind kind = Udp;
    std::string host;  // name, IPv4 address, or IPv6 address without brackets
    std::string port;  // decimal
    std::string path;  // of a socket in the file system
    std::string text;  // as it was written
};

// Reads "udp://host:port", "tcp://host:port" or "unix:/path"; an IPv6 address stands in brackets.
// False with the reason for anything else.
bool ParseSyslogTarget(const std::string& text, SyslogTarget& target, std::string& reason);
