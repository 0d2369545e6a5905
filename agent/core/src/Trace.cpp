#include "velm/Trace.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <set>
#include <shared_mutex>

#include <unistd.h>
#include <wx/datetime.h>

#include "LineFile.h"
#include "Newest.h"
#include "Utf8.h"

namespace VelmCore {
namespace {

class Tracer {
public:
    bool IsEnabled(const wchar_t* component) const {
        if (!m_AnyEnabled.load(std::memory_order_relaxed)) return false;
        std::shared_lock<std::shared_mutex> lock(m_EnabledMutex);
        return m_Enabled.find(component) != m_Enabled.end();
    }

    void Enable(const wxString& component, bool on) {
        std::unique_lock<std::shared_mutex> lock(m_EnabledMutex);
        if (on) {
            m_Enabled.insert(component.ToStdWstring());
        } else {
            m_Enabled.erase(component.ToStdWstring());
        }
        m_AnyEnabled = !m_Enabled.empty();
    }

    bool SetTarget(const wxString& target) {
        std::lock_guard<std::mutex> lock(m_TargetMutex);
        const bool isFile = !target.empty() && target != "-";
        if (isFile && !m_File.Open(target)) return false;
        if (!isFile) m_File.Close();
        m_ToStandardError = target == "-";
        return true;
    }

    void Write(const std::string& line) {
        std::lock_guard<std::mutex> lock(m_TargetMutex);
        // A trace that cannot be written has nobody to tell; the line is still kept in memory.
        if (m_ToStandardError) WriteAll(STDERR_FILENO, line + '\n');
        if (m_File.IsOpen()) m_File.Append(line);
    }

    Newest<TraceLine> m_Lines;  // locks itself

private:
    std::atomic<bool> m_AnyEnabled{false};
    mutable std::shared_mutex m_EnabledMutex;
    std::set<std::wstring, std::less<>> m_Enabled;  // guarded by m_EnabledMutex

    std::mutex m_TargetMutex;
    LineFile m_File;                 // guarded by m_TargetMutex
    bool m_ToStandardError = false;  // guarded by m_TargetMutex
};

// Never destroyed: threads trace until the process ends.
Tracer& TheTracer() {
    static Tracer& tracer = *new Tracer;
    return tracer;
}

const char* BaseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

}  // namespace

bool LogTraceIsEnabled(const wchar_t* component) {
    return TheTracer().IsEnabled(component);
}

void LogTrace(const wxString& component, const char* file, int line, const char* function,
              const wxString& message) {
    const wxString time = wxDateTime::UNow().Format("%Y-%m-%d %H:%M:%S.%l");
    wxString text = wxString::Format("%s %s %s:%d %s: %s", time, component, BaseName(file), line,
                                     function, message);
    text.Replace("\n", " ");
    TheTracer().Write(ToUtf8(text));
    TheTracer().m_Lines.Add({component, message});
}

void EnableTrace(const wxString& component, bool on) {
    TheTracer().Enable(component, on);
}

bool SetTraceTarget(const wxString& target) {
    return TheTracer().SetTarget(target);
}

std::vector<TraceLine> TakeTrace() {
    return TheTracer().m_Lines.Take();
}

}  // namespace VelmCore
