#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <wx/string.h>

#include "LineFile.h"
#include "Newest.h"
#include "velm/Dom.h"

namespace VelmCore {

// The agent events: the newest in memory, and, once a file is open, each as a JSON line in it. Any
// thread.
class EventLog {
public:
    // Empty, or why not.
    wxString Open(const wxString& path);
    void Write(int number, const wxString& text);
    std::vector<AgentEvent> Take() { return m_Newest.Take(); }

private:
    Newest<AgentEvent> m_Newest;  // locks itself
    std::mutex m_FileMutex;
    LineFile m_File;  // guarded by m_FileMutex
};

// One JSON object without a line end. `usec` is the time since the epoch.
std::string EventToJson(long long usec, int number, const wxString& text);

}  // namespace VelmCore
