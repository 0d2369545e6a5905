// LogData: the records of a time window, read back from the files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <list>

#include <wx/filename.h>
#include <wx/log.h>

#include "LogData.h"
#include "LogFileReader.h"
#include "Settings.h"
#include "Trace.h"
#include "velm/Dom.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

constexpr unsigned int kDrainMsec = 750;
constexpr unsigned int kMaxRecords = 5000;
// The date and the time in front of a record's text, with their separators.
constexpr ptrdiff_t kTimeStampLength = 22;

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : m_Fd(fd) {}
    ~FileDescriptor() {
        if (m_Fd != -1) close(m_Fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int Get() const { return m_Fd; }

private:
    int m_Fd;
};

// A bound of the window widened by the slack, held within the range of the type.
long Widened(long bound, long slack) {
    long widened;
    if (!__builtin_add_overflow(bound, slack, &widened)) return widened;
    return slack > 0 ? std::numeric_limits<long>::max() : std::numeric_limits<long>::min();
}

// The first time of a record in microseconds: the number behind the last comma and its blank. 0 if
// there is none.
long long ParseFirstTime(const LogLine& line) {
    const char* number = line.last + 2;
    if (number >= line.end) return 0;
    const char behind = *line.end;
    *line.end = '\0';
    const long long usec = strtoll(number, nullptr, 10);
    *line.end = behind;
    return usec;
}

struct LogRecord {
    long lineTime;
    std::string text;
};

// What GetLogDataStream collects. The limit is kept for the record: nothing enforces it.
struct LogRecordContext {
    std::list<LogRecord> records;
    unsigned int maxRecords = 0;
};

}  // namespace

// One call of GetLogData.
struct LogData::Retrieval {
    Retrieval(_Driver which, long start, long end, long slackSeconds, RetrievalCallback function,
              void* data)
        : whichDriver(which),
          startTime(start),
          endTime(end),
          slack(slackSeconds),
          callback(function),
          context(data) {}

    const _Driver whichDriver;
    const long startTime;
    const long endTime;
    const long slack;  // seconds; no record waits longer in the cache
    const RetrievalCallback callback;
    void* const context;

    // The file at hand.
    wxString path;
    bool isPrimary = false;
    unsigned int lineNumber = 0;
    long lineTime = 0;

    char Kind() const { return whichDriver == DriverFirewall ? 'f' : 'd'; }
};

bool LogData::GetLogData(_Driver whichDriver, long startTime, long endTime,
                         const wxString& requester, RetrievalCallback callback, void* context) {
    OSTREL_TRACE(s_Trace, "GetLogData(%lu, %lu, %.128s) for %.32s",
                 static_cast<unsigned long>(startTime), static_cast<unsigned long>(endTime),
                 requester, m_DriverName);
    DrainQueue(kDrainMsec);
    wxMutexLocker lock(m_RetrievalLock);
    wxArrayString files;
    if (GetAllLogFiles(m_LogFileName, files) == ~0u) {
        m_Dom.AgentEventWrite(3300, "%.128s", VelmCore::ErrnoToString(errno));
        return false;
    }
    const long slack = static_cast<long>((m_CacheLifetimeMsec + 500) / 1000);
    Retrieval retrieval(whichDriver, startTime, endTime, slack, callback, context);
    for (size_t i = files.size(); i-- > 0;) {
        retrieval.path = files[i];
        if (RetrieveFile(retrieval) == EndOfRetrieval) break;
    }
    m_FirstRetrieval[whichDriver] = false;
    return true;
}

LogData::LineOutcome LogData::RetrieveFile(Retrieval& retrieval) {
    const wxString& path = retrieval.path;
    const wxString fullName = wxFileName(path).GetFullName();
    OSTREL_TRACE(s_Trace, "GetLogData() - Looking at file %.128s", path);
    retrieval.isPrimary = fullName == m_LogFileName;
    if (retrieval.isPrimary) OSTREL_TRACE(s_Trace, "GetLogData() - File is primary");
    if (retrieval.startTime != 0) {
        struct stat status;
        if (stat(path.fn_str(), &status) != 0) {
            wxLogSysError("Failed to retrieve file times for '%s'", path);
            return EndOfFile;
        }
        if (retrieval.startTime > status.st_mtime) {
            OSTREL_TRACE(s_Trace,
                         "GetLogData() - Skipping all of file %s since it's older than we want",
                         path);
            return EndOfFile;
        }
    }
    FileDescriptor file(open(path.fn_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() == -1) {
        m_Dom.AgentEventWrite(3001, "%.64s|%.128s", fullName, VelmCore::ErrnoToString(errno));
        return EndOfFile;
    }
    LogFileReader reader(file.Get());
    LogLine line;
    LineOutcome outcome = NextLine;
    for (retrieval.lineNumber = 0; outcome == NextLine && reader.Next(line);
         ++retrieval.lineNumber) {
        if (line.state == LogLine::Corrupt) {
            ReportCorruptFile(path);
            // The line feed of the line itself has mostly been read: the next line goes instead.
            if (reader.SkipLine()) continue;
        }
        outcome = JudgeLine(retrieval, line);
    }
    return outcome;
}

// Delivers the line if it is wanted.
LogData::LineOutcome LogData::JudgeLine(Retrieval& retrieval, const LogLine& line) {
    if (line.third == nullptr || line.third[-1] != retrieval.Kind()) return NextLine;
    const long long usec = ParseFirstTime(line);
    const long lineTime = static_cast<long>(usec / 1000000);
    if (usec == 0 || lineTime == -1) return NextLine;
    retrieval.lineTime = lineTime;

    const bool isBeyondSlack =
        retrieval.endTime != 0 && lineTime > Widened(retrieval.endTime, retrieval.slack);
    if (isBeyondSlack && retrieval.lineNumber == 0) {
        OSTREL_TRACE(s_Trace,
                     "GetLogData() - Skipping all of file %.128s since it's newer than we want.",
                     retrieval.path);
        return EndOfFile;
    }
    if (retrieval.startTime != 0 && lineTime < retrieval.startTime &&
        !IsLateLineWanted(retrieval)) {
        return NextLine;
    }
    if (isBeyondSlack) {
        OSTREL_TRACE(s_Trace,
                     "GetLogData() - Skipping rest of file %.128s since the timestamps are newer "
                     "than we want.",
                     retrieval.path);
        return EndOfFile;
    }
    if (retrieval.endTime != 0 && lineTime > retrieval.endTime) return NextLine;

    const ptrdiff_t cut = std::min(kTimeStampLength, line.end - line.text);
    const std::string text(line.text + cut, line.end);
    if (retrieval.isPrimary && retrieval.lineNumber > Bookmark(retrieval.whichDriver)) {
        SetBookmark(retrieval.whichDriver, retrieval.lineNumber);
    }
    const bool goOn = retrieval.callback(retrieval.context, lineTime, retrieval.slack, text);
    return goOn ? NextLine : EndOfRetrieval;
}

// Judges a line from before the window: it is wanted if it can have reached the primary file only
// after an earlier window was asked for, and was not dealt with before. The bookmark is read each
// time, since a rotation changes it.
bool LogData::IsLateLineWanted(const Retrieval& retrieval) {
    if (!retrieval.isPrimary) return false;
    if (retrieval.lineTime < Widened(retrieval.startTime, -retrieval.slack)) return false;
    if (retrieval.lineNumber <= Bookmark(retrieval.whichDriver)) return false;
    if (!m_FirstRetrieval[retrieval.whichDriver]) return true;
    SetBookmark(retrieval.whichDriver, retrieval.lineNumber);
    return false;
}

// One bad file yields one warning, until another bad file was met.
void LogData::ReportCorruptFile(const wxString& path) {
    if (path == m_LastCorruptFile) return;
    wxLogWarning(
        "!6001!Non-printable data encountered in log file '%.256s'. The file may be corrupt, and "
        "if "
        "so, it should be deleted.",
        path);
    m_LastCorruptFile = path;
}

unsigned int LogData::Bookmark(_Driver whichDriver) {
    unsigned int lineNumber;
    GetLongSetting(m_Dom, m_LastLineKeys[whichDriver], &lineNumber, 0);
    return lineNumber;
}

void LogData::SetBookmark(_Driver whichDriver, unsigned int lineNumber) {
    m_Dom.Set(m_LastLineKeys[whichDriver], static_cast<long long>(lineNumber));
}

bool GetLogDataCB(void* context, long lineTime, long, const std::string& line) {
    if (context == nullptr) return false;
    static_cast<LogRecordContext*>(context)->records.push_back({lineTime, line});
    return true;
}

void LogData::GetLogDataStream(_Driver whichDriver, long startTime, long endTime,
                               const wxString& requester, unsigned int maxRecords,
                               wxOutputStream& out) {
    LogRecordContext context;
    context.maxRecords = std::min(maxRecords, kMaxRecords);
    GetLogData(whichDriver, startTime, endTime, requester, GetLogDataCB, &context);
    for (const LogRecord& record : context.records) {
        out.Write(record.text.data(), record.text.size());
        out.PutC('\n');
    }
}

}  // namespace OSTREL
