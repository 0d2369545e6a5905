#include "SyslogEvent.h"

#include <algorithm>

#include <wx/string.h>

#include "SyslogHeader.h"

namespace {

constexpr int kFirstProbe = 7000;
constexpr int kLastProbe = 7004;

// Events by number.
struct EventClass {
    int first;
    int last;
    const char* name;
    int cefSeverity;
    int severity;
};

constexpr EventClass kClasses[] = {
    {1001, 1001, "Driver Command Failed", 7, kSyslogError},
    {2019, 2019, "Bad Address List", 5, kSyslogWarning},
    {3001, 3300, "Log Retrieval Failed", 5, kSyslogError},
    {6001, 6009, "Log File Failure", 7, kSyslogError},
    {kFirstProbe, kLastProbe, "Reconnaissance", 8, kSyslogWarning},
};
constexpr EventClass kOther = {0, 0, "Agent Event", 3, kSyslogNotice};

const EventClass& ClassOf(int number) {
    const auto* found = std::find_if(
        std::begin(kClasses), std::end(kClasses),
        [number](const EventClass& c) { return number >= c.first && number <= c.last; });
    return found == std::end(kClasses) ? kOther : *found;
}

bool IsProbe(int number) {
    return number >= kFirstProbe && number <= kLastProbe;
}

std::string Field(const std::string& text, int index) {
    size_t begin = 0;
    for (; index > 0; --index) {
        begin = text.find('|', begin);
        if (begin == std::string::npos) return "";
        ++begin;
    }
    return text.substr(begin, text.find('|', begin) - begin);
}

// A probe's event begins with its type and the address that probed.
std::string NameOf(int number, const std::string& text) {
    return IsProbe(number) ? Field(text, 0) : ClassOf(number).name;
}

std::string SourceOf(int number, const std::string& text) {
    return IsProbe(number) ? Field(text, 1) : "";
}

std::string Underscored(std::string text) {
    std::replace(text.begin(), text.end(), ' ', '_');
    return text;
}

}  // namespace

int SyslogEvents::Severity(int number) {
    return ClassOf(number).severity;
}

void SyslogEvents::Write(std::string& out, int number, const std::string& text) {
    m_Syslogger.UpdateConfig();
    out.clear();
    if (m_Syslogger.GetSyslogFormatCEF()) {
        WriteCef(out, number, text);
    } else {
        WritePlain(out, number, text);
    }
}

void SyslogEvents::WriteCef(std::string& out, int number, const std::string& text) {
    const auto extension = [this](const std::string& value) {
        return m_Syslogger.EscapeCEFExtension(wxString::FromUTF8(value)).utf8_string();
    };
    char part[4096] = "";
    m_Syslogger.AppendHeaderCEF(part, sizeof(part));
    out = part + std::to_string(number) + "|";
    out += m_Syslogger.EscapeCEFPrefix(wxString::FromUTF8(NameOf(number, text))).utf8_string();
    out += "|" + std::to_string(ClassOf(number).cefSeverity) + "|";
    part[0] = '\0';
    m_Syslogger.AppendHostIdentityCEF(m_Syslogger.m_Format, part, sizeof(part));
    out += part;
    const std::string source = SourceOf(number, text);
    if (!source.empty()) out += " src=" + extension(source);
    out += " msg=" + extension(text);
}

void SyslogEvents::WritePlain(std::string& out, int number, const std::string& text) const {
    const bool upper = m_Syslogger.m_Format == 0;
    out = "REASON=" + Underscored(NameOf(number, text)) + " HOSTID=" + std::to_string(m_HostId);
    out += (upper ? " EVENT=" : " event=") + std::to_string(number);
    const std::string source = SourceOf(number, text);
    if (!source.empty()) out += (upper ? " SRC=" : " src=") + Underscored(source);
    out += (upper ? " MSG=" : " msg=") + Underscored(text);
}
