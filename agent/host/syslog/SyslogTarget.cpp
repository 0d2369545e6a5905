#include "SyslogTarget.h"

#include <arpa/inet.h>
#include <sys/un.h>

#include <algorithm>

namespace {

constexpr const char* kForms = "expected udp://host:port, tcp://host:port or unix:/path";
constexpr size_t kMaxHost = 255;

// Takes the prefix off.
bool Take(std::string& text, const char* prefix) {
    const std::string wanted = prefix;
    if (text.compare(0, wanted.size(), wanted) != 0) return false;
    text.erase(0, wanted.size());
    return true;
}

bool IsPort(const std::string& text) {
    if (text.empty() || text.size() > 5) return false;
    if (text.find_first_not_of("0123456789") != std::string::npos) return false;
    const int number = std::stoi(text);
    return number >= 1 && number <= 65535;
}

// An address, with the name of an interface behind "%" where it is link-local.
bool IsIpv6(const std::string& text) {
    in6_addr address{};
    return inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &address) == 1;
}

bool IsHostName(const std::string& text) {
    const auto isPlain = [](char c) {
        return c == '-' || c == '.' || c == '_' || (c >= '0' && c <= '9') ||
               (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    return !text.empty() && text.size() <= kMaxHost && text[0] != '-' &&
           std::all_of(text.begin(), text.end(), isPlain);
}

bool ParseHost(std::string host, SyslogTarget& target, std::string& reason) {
    const bool inBrackets = host.size() > 1 && host.front() == '[' && host.back() == ']';
    if (inBrackets) host = host.substr(1, host.size() - 2);
    if (inBrackets ? !IsIpv6(host) : !IsHostName(host)) {
        reason = inBrackets     ? "no IPv6 address in the brackets"
                 : IsIpv6(host) ? "an IPv6 address must stand in brackets"
                 : host.empty() ? "the host is missing"
                                : "\"" + host + "\" is no host";
        return false;
    }
    target.host = host;
    return true;
}

bool ParseNetwork(const std::string& rest, SyslogTarget& target, std::string& reason) {
    const size_t colon = rest.rfind(':');
    if (colon == std::string::npos || rest.find(']', colon) != std::string::npos) {
        reason = "the port is missing";
        return false;
    }
    target.port = rest.substr(colon + 1);
    if (!IsPort(target.port)) {
        reason = "\"" + target.port + "\" is no port";
        return false;
    }
    return ParseHost(rest.substr(0, colon), target, reason);
}

bool ParsePath(const std::string& path, SyslogTarget& target, std::string& reason) {
    if (path.empty() || path[0] != '/') {
        reason = "the path must begin with a slash";
    } else if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        reason = "the path is too long for a socket";
    } else if (path.find('\0') != std::string::npos) {
        reason = "zero byte in the path";
    } else {
        target.path = path;
        return true;
    }
    return false;
}

}  // namespace

bool ParseSyslogTarget(const std::string& text, SyslogTarget& target, std::string& reason) {
    SyslogTarget parsed;
    parsed.text = text;
    std::string rest = text;
    bool valid = false;
    if (Take(rest, "unix:")) {
        parsed.kind = SyslogTarget::Unix;
        valid = ParsePath(rest, parsed, reason);
    } else if (Take(rest, "tcp://")) {
        parsed.kind = SyslogTarget::Tcp;
        valid = ParseNetwork(rest, parsed, reason);
    } else if (Take(rest, "udp://")) {
        valid = ParseNetwork(rest, parsed, reason);
    } else {
        reason = kForms;
    }
    if (valid) target = parsed;
    return valid;
}
