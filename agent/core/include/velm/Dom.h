#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <wx/string.h>

#include "velm/Export.h"

namespace VelmCore {

class XMLObject;

// One agent event: a number, and a text whose fields are separated by vertical bars.
struct AgentEvent {
    int number;
    wxString text;
};

// The agent's central object: settings, policy, conditions, event log. One for the process, made
// before any other thread runs and destroyed after the last one has ended. All operations but the
// constructor and the destructor may be called on any thread.
class VELM_API CDom {
public:
    // Settings in memory only; no event file.
    CDom();
    // Writes what is pending (settings) and forgets the rest.
    ~CDom();
    CDom(const CDom&) = delete;
    CDom& operator=(const CDom&) = delete;

    // Host side, called before scripts run. Both return an empty text, or the reason of a failure.
    // Settings are read from `path` at once, and from then on written to it in batches, at the
    // latest one second after a change and at exit. A file that does not exist is made; one that
    // cannot be opened or is damaged is a failure and stays as it is.
    wxString OpenSettings(const wxString& path);
    // Events are appended to `path` as JSON lines ("time", "number", "text"), mode 0600.
    wxString OpenEventFile(const wxString& path);
    // Blocks until every setting stored so far is durable. False if writing failed.
    bool FlushSettings();

    // Settings store. `Set` is visible at once. Values are text; as a number, text that is none
    // reads as 0, and as a boolean, "true", "yes", "on" and numbers other than 0 are true. The
    // second and third form return whether there is a value; without one the number is left alone,
    // the boolean false.
    std::string Get(const std::string& key) const;
    bool Get(const std::string& key, long long& value) const;
    bool Get(const std::string& key, bool& value) const;
    wxString GetWxString(const wxString& key) const;
    void Set(const std::string& key, long long value);
    void SetText(const std::string& key, const std::string& value);

    // Policy. `path` is "/Root/Element..."; the object is emptied first. False if there is no such
    // element or it cannot be read.
    bool ConfigGetXml(const std::string& path, XMLObject& object) const;
    // Replaces the policy by a whole document with the root SecurityConfiguration. Returns an empty
    // text, or the reason why it was refused: the former policy then stays.
    wxString ConfigSetXml(const std::string& xml);

    // Conditions. `value` changes each time the condition is raised, and is never all ones. The
    // last two arguments are reserved; callers pass null.
    bool ConditionQuery(const std::string& name, unsigned long long& value, unsigned int* reserved1,
                        unsigned int* reserved2);
    void ConditionRaise(const std::string& name);

    // True once the shutdown has begun. Waits at most `waitMsec` for it. Callers pass null.
    bool ShouldExit(unsigned int waitMsec, bool* reserved) const;
    void RequestExit();

    // Agent events. Formats follow the printf rules of wxWidgets.
    void DoAgentEventWrite(int number, const wchar_t* format, ...);
    void DoAgentEventWriteUtf8(int number, const char* format, ...)
        __attribute__((format(printf, 3, 4)));
    WX_DEFINE_VARARG_FUNC_VOID(AgentEventWrite, 2, (int, const wxFormatString&), DoAgentEventWrite,
                               DoAgentEventWriteUtf8)

    // The same for callers that hold no CDom: they go to the process's one. Without one they are
    // dropped. `reserved` is 0.
    static void DoLogAgentEvent(int reserved, int number, const wchar_t* format, ...);
    static void DoLogAgentEventUtf8(int reserved, int number, const char* format, ...)
        __attribute__((format(printf, 3, 4)));
    template <typename... Args>
    static void LogAgentEvent(int reserved, int number, const wxFormatString& format,
                              Args... args) {
        LogAgentEventText(reserved, number, wxString::Format(format, args...));
    }

    // Events since the last call, oldest first. At most 10,000 are kept, the newest.
    std::vector<AgentEvent> TakeEvents();

private:
    friend class CSyslogger;

    // As long as it is the same, all settings are. Never 0.
    uint64_t SettingsGeneration() const;
    static void LogAgentEventText(int reserved, int number, const wxString& text);

    struct State;
    std::unique_ptr<State> m_State;
};

}  // namespace VelmCore
