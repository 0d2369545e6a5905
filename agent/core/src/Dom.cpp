#include "velm/Dom.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <strings.h>

#include "DomState.h"
#include "Utf8.h"

namespace VelmCore {
namespace {

std::atomic<CDom*> s_ProcessDom{nullptr};

// A whole decimal number; one out of range becomes the nearest that fits, any other text 0.
long long ToNumber(const std::string& text) {
    char* end = nullptr;
    const long long value = strtoll(text.c_str(), &end, 10);
    return end == text.c_str() + text.size() ? value : 0;
}

bool ToBool(const std::string& text) {
    for (const char* word : {"true", "yes", "on"}) {
        if (strcasecmp(text.c_str(), word) == 0) return true;
    }
    return ToNumber(text) != 0;
}

__attribute__((format(printf, 1, 0))) std::string FormatNarrow(const char* format,
                                                               va_list arguments) {
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    if (length < 0) return std::string();
    std::string result(text, static_cast<size_t>(length));
    free(text);
    return result;
}

}  // namespace

CDom* ProcessDom() {
    return s_ProcessDom.load(std::memory_order_acquire);
}

CDom::CDom() : m_State(std::make_unique<State>()) {
    s_ProcessDom.store(this, std::memory_order_release);
}

CDom::~CDom() {
    CDom* self = this;
    s_ProcessDom.compare_exchange_strong(self, nullptr);
}

wxString CDom::OpenSettings(const wxString& path) {
    return m_State->settings.Open(path);
}

wxString CDom::OpenEventFile(const wxString& path) {
    return m_State->events.Open(path);
}

bool CDom::FlushSettings() {
    return m_State->settings.Flush();
}

std::string CDom::Get(const std::string& key) const {
    std::string text;
    m_State->settings.Find(key, text);
    return text;
}

bool CDom::Get(const std::string& key, long long& value) const {
    std::string text;
    if (!m_State->settings.Find(key, text)) return false;
    value = ToNumber(text);
    return true;
}

bool CDom::Get(const std::string& key, bool& value) const {
    std::string text;
    const bool found = m_State->settings.Find(key, text);
    value = ToBool(text);
    return found;
}

wxString CDom::GetWxString(const wxString& key) const {
    return FromUtf8(Get(ToUtf8(key)));
}

void CDom::Set(const std::string& key, long long value) {
    SetText(key, std::to_string(value));
}

void CDom::SetText(const std::string& key, const std::string& value) {
    m_State->settings.Set(key, value);
}

uint64_t CDom::SettingsGeneration() const {
    return m_State->settings.Generation();
}

bool CDom::ConfigGetXml(const std::string& path, XMLObject& object) const {
    return m_State->policy.Read(path, object);
}

wxString CDom::ConfigSetXml(const std::string& xml) {
    return m_State->policy.Replace(xml);
}

bool CDom::ConditionQuery(const std::string& name, unsigned long long& value, unsigned int*,
                          unsigned int*) {
    return m_State->conditions.Query(name, value);
}

void CDom::ConditionRaise(const std::string& name) {
    m_State->conditions.Raise(name);
}

bool CDom::ShouldExit(unsigned int waitMsec, bool*) const {
    return m_State->exit.Wait(std::chrono::milliseconds(waitMsec));
}

void CDom::RequestExit() {
    m_State->exit.Set();
}

void CDom::DoAgentEventWrite(int number, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    m_State->events.Write(number, wxString::FormatV(format, arguments));
    va_end(arguments);
}

void CDom::DoAgentEventWriteUtf8(int number, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    m_State->events.Write(number, FromUtf8(FormatNarrow(format, arguments)));
    va_end(arguments);
}

void CDom::DoLogAgentEvent(int reserved, int number, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogAgentEventText(reserved, number, wxString::FormatV(format, arguments));
    va_end(arguments);
}

void CDom::DoLogAgentEventUtf8(int reserved, int number, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogAgentEventText(reserved, number, FromUtf8(FormatNarrow(format, arguments)));
    va_end(arguments);
}

void CDom::LogAgentEventText(int, int number, const wxString& text) {
    if (CDom* dom = ProcessDom()) dom->m_State->events.Write(number, text);
}

std::vector<AgentEvent> CDom::TakeEvents() {
    return m_State->events.Take();
}

}  // namespace VelmCore
