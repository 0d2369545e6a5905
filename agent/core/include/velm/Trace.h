#pragma once

#include <string>
#include <vector>

#include <wx/string.h>

#include "velm/Export.h"

// Trace lines, by component. Off by default. All operations may be called on any thread.
namespace VelmCore {

// Cheap while no component is on. Callers ask first and only then build the message.
VELM_API bool LogTraceIsEnabled(const wchar_t* component);
// Writes one line. `file` is the source's path and `function` its function's name.
VELM_API void LogTrace(const wxString& component, const char* file, int line, const char* function,
                       const wxString& message);

struct TraceLine {
    wxString component;
    wxString message;
};

VELM_API void EnableTrace(const wxString& component, bool on);
// Where lines go besides memory: nowhere (the start value), standard error ("-"), or a file that is
// appended to. False if the file cannot be opened; the former target then stays.
VELM_API bool SetTraceTarget(const wxString& target);
// The lines since the last call, oldest first. At most 10,000 are kept, the newest.
VELM_API std::vector<TraceLine> TakeTrace();

}  // namespace VelmCore
