#include "EventLog.h"

#include <cerrno>
#include <chrono>
#include <cstdio>

#include "TraceSelf.h"
#include "Utf8.h"
#include "velm/Text.h"

namespace VelmCore {
namespace {

long long NowUsec() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

void AppendEscaped(std::string& json, char c) {
    switch (c) {
        case '"':
        case '\\':
            json += '\\';
            json += c;
            return;
        case '\n':
            json += "\\n";
            return;
        case '\r':
            json += "\\r";
            return;
        case '\t':
            json += "\\t";
            return;
    }
    const unsigned int value = static_cast<unsigned char>(c);
    if (value >= 0x20 && value != 0x7F) {
        json += c;
        return;
    }
    char escape[8];
    snprintf(escape, sizeof(escape), "\\u%04x", value);
    json += escape;
}

}  // namespace

std::string EventToJson(long long usec, int number, const wxString& text) {
    char head[96];
    snprintf(head, sizeof(head), "{\"time\":%lld.%06lld,\"number\":%d,\"text\":\"", usec / 1000000,
             usec % 1000000, number);
    std::string json = head;
    for (const char c : ToUtf8(text))
        AppendEscaped(json, c);
    return json + "\"}";
}

wxString EventLog::Open(const wxString& path) {
    std::lock_guard<std::mutex> lock(m_FileMutex);
    if (m_File.Open(path)) return wxString();
    const int error = errno;
    return wxString::Format("event file %s: %s", path, ErrnoToString(error));
}

void EventLog::Write(int number, const wxString& text) {
    m_Newest.Add({number, text});
    std::lock_guard<std::mutex> lock(m_FileMutex);
    if (!m_File.IsOpen() || m_File.Append(EventToJson(NowUsec(), number, text))) return;
    const int error = errno;
    VELM_CORE_TRACE("cannot write event %d: %s", number, ErrnoToString(error));
}

}  // namespace VelmCore
