#pragma once

#include <vector>

#include <wx/string.h>

#include "velm/Export.h"

// The agent's receiver of the wx log and of wx's assertions. All operations may be called on any
// thread.
namespace VelmCore {

struct LogLine {
    wxString level;  // "error", "warning", "message", "info", "debug", "trace"
    wxString text;
};

// Takes over the wx log and the assertion handler for the process. Each line is kept in memory and,
// if `program` is not empty, written to standard error as "program: text". A failed assertion is
// reported as an error line with its condition and place, is counted, and the program goes on.
VELM_API void InstallLog(const wxString& program);
// A thread that logs calls this first: its lines then take effect at once. wx keeps the lines of
// other threads until the main thread logs or calls TakeLog. Without effect on the main thread and
// before InstallLog.
VELM_API void AttachThreadToLog();
// The lines since the last call, oldest first. At most 10,000 are kept, the newest.
VELM_API std::vector<LogLine> TakeLog();
// Assertions that have failed since the process began.
VELM_API unsigned int FailedAssertions();

}  // namespace VelmCore
