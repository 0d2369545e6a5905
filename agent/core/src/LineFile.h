#pragma once

#include <string>

#include <wx/string.h>

namespace VelmCore {

// Writes all bytes, also after an interruption. False on failure, with errno.
bool WriteAll(int file, const std::string& bytes);

// A file that lines are appended to, made with mode 0600. Not locked.
class LineFile {
public:
    LineFile() = default;
    ~LineFile() { Close(); }
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    // False on failure, with errno; the former file then stays open.
    bool Open(const wxString& path);
    void Close();
    bool IsOpen() const { return m_File >= 0; }
    // Appends a line with one write; `line` comes without its end. False on failure, with errno: a
    // torn line is then ended before the next one.
    bool Append(std::string line);

private:
    int m_File = -1;
    bool m_Torn = false;
};

}  // namespace VelmCore
