#include "velm/Log.h"

#include <atomic>
#include <memory>
#include <mutex>

#include <unistd.h>
#include <wx/debug.h>
#include <wx/log.h>

#include "LineFile.h"
#include "Newest.h"
#include "Utf8.h"

namespace VelmCore {
namespace {

class LogStore {
public:
    void SetProgram(const wxString& program) {
        std::lock_guard<std::mutex> lock(m_ProgramMutex);
        m_Program = program;
    }

    void Write(const wxString& level, const wxString& text) {
        WriteToStandardError(text);
        m_Lines.Add({level, text});
    }

    Newest<LogLine> m_Lines;  // locks itself

private:
    void WriteToStandardError(const wxString& text) {
        std::lock_guard<std::mutex> lock(m_ProgramMutex);
        if (m_Program.empty()) return;
        WriteAll(STDERR_FILENO, ToUtf8(m_Program + ": " + text + "\n"));
    }

    std::mutex m_ProgramMutex;
    wxString m_Program;  // guarded by m_ProgramMutex
};

// Never destroyed: threads log until the process ends.
LogStore& TheStore() {
    static LogStore& store = *new LogStore;
    return store;
}

const char* LevelName(wxLogLevel level) {
    switch (level) {
        case wxLOG_FatalError:
        case wxLOG_Error:
            return "error";
        case wxLOG_Warning:
            return "warning";
        case wxLOG_Status:
        case wxLOG_Info:
            return "info";
        case wxLOG_Debug:
            return "debug";
        case wxLOG_Trace:
            return "trace";
        default:
            return "message";
    }
}

// wx holds no lock while it calls this, so a target that attached threads share must not have a
// state of its own.
class LogTarget : public wxLog {
protected:
    void DoLogRecord(wxLogLevel level, const wxString& text, const wxLogRecordInfo&) override {
        // What other threads have left with wx is older than this line.
        if (wxThread::IsMain() && this == GetActiveTarget()) FlushActive();
        TheStore().Write(LevelName(level), text);
    }
};

std::atomic<bool> s_Installed{false};
std::atomic<unsigned int> s_FailedAssertions{0};

// Called on the thread that failed, at any point of it: reports without wx's log. An assertion that
// fails while one is reported is only counted.
void OnFailedAssertion(const wxString& file, int line, const wxString& function,
                       const wxString& condition, const wxString& message) {
    static thread_local bool reporting = false;
    ++s_FailedAssertions;
    if (reporting) return;
    reporting = true;
    wxString text = wxString::Format("assertion \"%s\" failed at %s:%d in %s()", condition, file,
                                     line, function);
    if (!message.empty()) text += ": " + message;
    TheStore().Write("error", text);
    reporting = false;
}

}  // namespace

void InstallLog(const wxString& program) {
    TheStore().SetProgram(program);
    wxSetAssertHandler(&OnFailedAssertion);
    delete wxLog::SetActiveTarget(new LogTarget);  // wx owns the target and deletes it at exit
    s_Installed = true;
}

void AttachThreadToLog() {
    if (!s_Installed) return;  // the log is somebody else's
    // Apart from the main target, which wx may delete while a thread still runs.
    static LogTarget& target = *new LogTarget;
    if (!wxThread::IsMain()) wxLog::SetThreadActiveTarget(&target);
}

std::vector<LogLine> TakeLog() {
    if (wxThread::IsMain()) wxLog::FlushActive();
    return TheStore().m_Lines.Take();
}

unsigned int FailedAssertions() {
    return s_FailedAssertions;
}

}  // namespace VelmCore
