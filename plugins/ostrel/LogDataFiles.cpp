// LogData: the file set on disk, its rotation, and a full disk.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string_view>
#include <vector>

#include <wx/dir.h>
#include <wx/filefn.h>
#include <wx/filename.h>
#include <wx/log.h>

#include "LogData.h"
#include "Trace.h"
#include "velm/Dom.h"
#include "velm/Files.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

constexpr unsigned int kNoFiles = ~0u;

// The length of an open file, or -1. One system call, and the cheapest: wxFile::Length makes
// several. The position does not matter to a file that is
// appended to.
long long LengthOf(const wxFile& file) {
    const off_t end = lseek(file.fd(), 0, SEEK_END);
    if (end != -1) return end;
    struct stat status;
    return fstat(file.fd(), &status) == 0 ? static_cast<long long>(status.st_size) : -1;
}

void AppendNumber(std::string& line, const char* separator, unsigned long long value) {
    char digits[24];
    line += separator;
    line.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

// False, with errno, for a directory that cannot be read. wxDir::GetAllFiles finds no files there
// and says no more.
bool IsListable(const wxString& path) {
    DIR* directory = opendir(path.fn_str());
    if (directory == nullptr) return false;
    closedir(directory);
    return true;
}

// The number that a file's extension shows. False if it has none or it is no number.
bool VersionNumber(const wxString& path, long& number) {
    return wxFileName(path).GetExt().ToLong(&number, 10);
}

// The numbers of the copies of a file that may have to move, the highest first, and 0 for the file
// itself: all below `copies`. The directory tells them, since a configuration may ask for more
// copies than can be counted through.
std::vector<int> CopyNumbers(const wxFileName& file, int copies) {
    std::vector<int> numbers;
    if (copies > 0) numbers.push_back(0);
    const std::string prefix = std::string((file.GetName() + ".").fn_str());
    DIR* directory = opendir(file.GetPath().fn_str());
    if (directory == nullptr) return numbers;
    while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name.substr(0, prefix.size()) != prefix) continue;
        const std::string_view digits = name.substr(prefix.size());
        int number = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (number > 0 && number < copies && digits == std::to_string(number))
            numbers.push_back(number);
    }
    closedir(directory);
    std::sort(numbers.begin(), numbers.end(), std::greater<int>());
    return numbers;
}

}  // namespace

bool LogData::InitializeLogFile() {
    if (m_LogFile.IsOpened()) return true;
    int fd = OpenLogFile();
    if (fd == -1 && !wxDirExists(m_LogFilePath)) {
        if (!wxFileName::Mkdir(m_LogFilePath, 0755, wxPATH_MKDIR_FULL)) {
            m_Dom.AgentEventWrite(6003, "%.128s", m_LogFilePath);
            return false;
        }
        VelmCore::SecureFileOrDirectory(m_LogFilePath, false);
        fd = OpenLogFile();
    }
    if (fd == -1) {
        m_Dom.AgentEventWrite(6001, "%.128s", m_LogFileFullPath);
        return false;
    }
    m_LogFile.Attach(fd);
    if (LengthOf(m_LogFile) == 0) VelmCore::SecureFileOrDirectory(m_LogFileFullPath, false);
    return true;
}

// Opens the current file for appending. -1 with errno on failure. Not wxFile::Open: that looks
// first whether the file exists, and this is done at every flush that writes.
int LogData::OpenLogFile() {
    return open(m_LogFileBytes.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
}

bool LogData::WriteRecord(const std::string& text, const CBufferedLogRecord& record) {
    wxMutexLocker lock(m_FileLock);
    if (!InitializeLogFile()) return false;
    if (m_RawRecords) return WriteRawData(static_cast<unsigned int>(text.size()), text.data());
    m_Line.clear();
    m_Line.reserve(text.size() + 128);
    m_Line += TimeStamp(record.m_FirstTime);
    m_Line += text;
    AppendNumber(m_Line, ", ", record.m_Count);
    AppendNumber(m_Line, ", ", static_cast<unsigned long long>(record.m_LastTime));
    AppendNumber(m_Line, ", ", static_cast<unsigned long long>(record.m_FirstTime));
    m_Line += '\n';
    return WriteRawData(static_cast<unsigned int>(m_Line.size()), m_Line.data());
}

// The date and time of a record in the machine's time zone, with their separators. Many lines share
// a second, and making the text costs as much as the rest of the line.
const std::string& LogData::TimeStamp(long long usec) {
    const time_t second = static_cast<time_t>(usec / 1000000);
    if (second == m_StampSecond && !m_Stamp.empty()) return m_Stamp;
    struct tm local;
    char stamp[64] = "";
    if (localtime_r(&second, &local) != nullptr) {
        strftime(stamp, sizeof stamp, "%Y/%m/%d, %H:%M:%S, ", &local);
    }
    m_StampSecond = second;
    m_Stamp = stamp;
    return m_Stamp;
}

bool LogData::WriteRawData(unsigned int length, const void* data) {
    const char* bytes = static_cast<const char*>(data);
    int lastError = 0;
    while (length > 0) {
        const ssize_t written = write(m_LogFile.fd(), bytes, length);
        if (written != -1) {
            if (static_cast<size_t>(written) == length) {
                m_OutOfSpace = false;
                return true;
            }
            bytes += written;
            length -= static_cast<unsigned int>(written);
            lastError = 0;
        } else if (errno == EINTR) {
            lastError = EINTR;
        } else if (errno == ENOSPC) {
            if (!HandleFullDisk(lastError)) return false;
        } else {
            m_Dom.AgentEventWrite(6002, "%.128s", m_LogFileFullPath);
            m_LogFile.Close();
            return false;
        }
    }
    return true;
}

// Deletes one old copy for each write that found the disk full. True if the write is worth another
// try; otherwise the file is closed. A second full disk in a row, with nothing written between,
// gives up.
bool LogData::HandleFullDisk(int& lastError) {
    if (lastError == ENOSPC) {
        m_LogFile.Close();
        return false;
    }
    if (!m_OutOfSpace) {
        wxLogWarning(
            "Out of space on the log file disk. Trying to make room by deleting old log files.");
        m_Dom.AgentEventWrite(6009, "");
        m_OutOfSpace = true;
    }
    if (RemoveOldestFile()) {
        lastError = ENOSPC;
        return true;
    }
    if (errno != ENOSPC) m_Dom.AgentEventWrite(6002, "%.128s", m_LogFileFullPath);
    m_LogFile.Close();
    return false;
}

bool LogData::WriteFileHeader() {
    return true;
}

bool LogData::CloseAndRotateFile() {
    if (!m_LogFile.IsOpened()) return true;
    const long long length = LengthOf(m_LogFile);
    m_LogFile.Close();
    if (length == -1) {
        m_Dom.AgentEventWrite(6004, "%.128s", m_LogFileFullPath);
        return false;
    }
    if (length / 1024 < static_cast<long long>(m_LogFileSizeKB)) return true;
    return RotateFiles();
}

bool LogData::RotateFiles() {
    OSTREL_TRACE(s_Trace, "RotateFiles() for %.32s", m_DriverName);
    if (!RemoveOldFiles(false)) return false;
    // The next current file starts empty, so its bookmarks do too, those of either kind.
    m_Dom.Set(m_LastLineKeys[DriverFirewall], 0LL);
    m_Dom.Set(m_LastLineKeys[DriverDpi], 0LL);
    const wxFileName current(m_LogFilePath, m_LogFileName);
    for (const int number : CopyNumbers(current, m_NumberOfOldCopies)) {
        wxFileName from(current);
        wxFileName to(current);
        if (number > 0) from.SetExt(wxString::Format("%d", number));
        to.SetExt(wxString::Format("%d", number + 1));
        MoveCopy(from.GetFullPath(), to.GetFullPath());
    }
    return true;
}

void LogData::MoveCopy(const wxString& from, const wxString& to) {
    if (!wxFileExists(from)) return;
    OSTREL_TRACE(s_Trace, "RotateFiles() - renaming %.128s to %.128s", from, to);
    // Not wxRenameFile, nor wxRemoveFile below: they log, and errno is gone then.
    if (wxRename(from, to) == 0) {
        VelmCore::SecureFileOrDirectory(to, false);
    } else {
        m_Dom.AgentEventWrite(6007, "%.128s|%.128s|%.128s", from, to,
                              VelmCore::ErrnoToString(errno));
    }
}

bool LogData::RemoveOldFiles(bool oldestOnly) {
    OSTREL_TRACE(s_Trace, "RemoveOldFiles() for %.32s", m_DriverName);
    wxArrayString files;
    if (GetAllLogFiles(m_LogFileName, files) == kNoFiles) {
        m_Dom.AgentEventWrite(3300, "%.128s", VelmCore::ErrnoToString(errno));
        return false;
    }
    for (size_t i = files.size(); i-- > 0;) {
        const wxString& path = files[i];
        const long number = strtol(wxFileName(path).GetExt().utf8_str(), nullptr, 10);
        if (number < m_NumberOfOldCopies && (number < 1 || !oldestOnly)) continue;
        if (wxRemove(path) == 0) {
            OSTREL_TRACE(s_Trace, "Deleted log file %.128s", path);
            if (oldestOnly) return true;
        } else {
            m_Dom.AgentEventWrite(6006, "%.128s|%.128s", path, VelmCore::ErrnoToString(errno));
        }
    }
    return true;
}

bool LogData::RemoveOldestFile() {
    OSTREL_TRACE(s_Trace, "RemoveOldestFile() for %.32s", m_DriverName);
    return RemoveOldFiles(true);
}

unsigned int LogData::GetAllLogFiles(wxString prefix, wxArrayString& files) {
    files.clear();
    prefix += "*";
    if (!IsListable(m_LogFilePath)) {
        const int error = errno;
        m_Dom.AgentEventWrite(6005, "%.128s|%.128s", m_LogFilePath, VelmCore::ErrnoToString(error));
        errno = error;
        return kNoFiles;
    }
    wxDir::GetAllFiles(m_LogFilePath, &files, prefix, wxDIR_FILES);
    files.Sort(VersionNumberCompare);
    return static_cast<unsigned int>(files.size());
}

int LogData::VersionNumberCompare(const wxString& first, const wxString& second) {
    long firstNumber;
    long secondNumber;
    if (!VersionNumber(first, firstNumber)) firstNumber = 0;
    if (!VersionNumber(second, secondNumber)) secondNumber = 0;
    // Held within an int: a difference that wrapped would leave the sort without an order.
    long difference;
    const bool wraps = __builtin_sub_overflow(firstNumber, secondNumber, &difference);
    if (wraps) return firstNumber < secondNumber ? INT_MIN : INT_MAX;
    if (difference < INT_MIN) return INT_MIN;
    if (difference > INT_MAX) return INT_MAX;
    return static_cast<int>(difference);
}

}  // namespace OSTREL
