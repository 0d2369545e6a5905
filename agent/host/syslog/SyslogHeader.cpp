#include "SyslogHeader.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "velm/Text.h"

namespace {

constexpr const char* kApplication = "velm_agent";
constexpr size_t kMaxHost = 255;

constexpr const char* kFacilities[] = {
    "kern",   "user",   "mail",     "daemon", "auth",   "syslog", "lpr",    "news",
    "uucp",   "cron",   "authpriv", "ftp",    "ntp",    "audit",  "alert",  "clock",
    "local0", "local1", "local2",   "local3", "local4", "local5", "local6", "local7",
};

// RFC 5424 has neither blanks nor anything beyond ASCII in a field, and "-" for an empty one.
std::string HostField(const std::string& host) {
    std::string field;
    for (const char c : host) {
        if (c > ' ' && c < 0x7F && field.size() < kMaxHost) field += c;
    }
    return field.empty() ? "-" : field;
}

bool IsPlain(char c) {
    return c >= ' ' && c < 0x7F;
}

// A whole character that is not plain ASCII. Those from 0x80 to 0x9F control terminals as well.
bool IsControl(std::string_view character) {
    return character.size() == 1 || (character[0] == '\xC2' && character[1] < '\xA0');
}

}  // namespace

int FacilityNumber(std::string_view name) {
    int number = 0;
    for (const char* facility : kFacilities) {
        if (name == facility) return number;
        ++number;
    }
    return -1;
}

void AppendClean(std::string& out, std::string_view text) {
    size_t at = 0;
    while (at < text.size()) {
        const size_t begin = at;
        while (at < text.size() && IsPlain(text[at]))
            ++at;
        out.append(text.substr(begin, at - begin));
        if (at == text.size()) return;
        const size_t length = VelmCore::Utf8Length(text, at);
        if (length == 0) {
            out += '?';
        } else if (IsControl(text.substr(at, length))) {
            out += ' ';
        } else {
            out.append(text.substr(at, length));
        }
        at += std::max<size_t>(length, 1);
    }
}

SyslogHeader::SyslogHeader(Form form, int facility, const std::string& host)
    : m_Form(form),
      m_Facility(facility),
      m_Host(HostField(host)),
      m_Process(std::to_string(getpid())) {}

void SyslogHeader::SetSecond(int64_t second) {
    if (second == m_Second) return;
    m_Second = second;
    const auto time = static_cast<time_t>(second);
    std::tm local{};
    localtime_r(&time, &local);
    char text[64];
    strftime(text, sizeof(text), m_Form == Local ? "%b %e %H:%M:%S" : "%Y-%m-%dT%H:%M:%S", &local);
    m_Date = text;
    const long minutes = local.tm_gmtoff / 60;
    snprintf(text, sizeof(text), "%c%02ld:%02ld", minutes < 0 ? '-' : '+',
             (minutes < 0 ? -minutes : minutes) / 60, (minutes < 0 ? -minutes : minutes) % 60);
    m_Offset = text;
}

void SyslogHeader::Write(std::string& out, int64_t usec, int severity, std::string_view kind,
                         std::string_view text) {
    SetSecond(usec / 1000000);
    char start[32];
    snprintf(start, sizeof(start), "<%d>", m_Facility * 8 + severity);
    out = start;
    if (m_Form == Local) {
        out.append(m_Date).append(" ").append(kApplication);
        out.append("[").append(m_Process).append("]: ");
    } else {
        snprintf(start, sizeof(start), ".%06d", static_cast<int>(usec % 1000000));
        out.append("1 ").append(m_Date).append(start).append(m_Offset).append(" ");
        out.append(m_Host).append(" ").append(kApplication).append(" ").append(m_Process);
        out.append(" ").append(kind).append(" - ");
    }
    AppendClean(out, text);
}
