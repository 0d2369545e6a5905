#include "LineFile.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VelmCore {

bool WriteAll(int file, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(file, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) done += static_cast<size_t>(written);
    }
    return true;
}

bool LineFile::Open(const wxString& path) {
    // Without O_NONBLOCK a pipe that nobody reads would stop the agent.
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    const int file = open(path.fn_str(), flags, 0600);
    if (file < 0) return false;
    Close();
    m_File = file;
    return true;
}

void LineFile::Close() {
    if (m_File >= 0) close(m_File);
    m_File = -1;
    m_Torn = false;
}

bool LineFile::Append(std::string line) {
    if (m_Torn) line.insert(0, 1, '\n');
    line += '\n';
    ssize_t written;
    do {
        written = write(m_File, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(line.size())) {
        m_Torn = false;
        return true;
    }
    if (written > 0) {
        m_Torn = true;
        errno = ENOSPC;  // what cuts a write to a file short
    }
    return false;
}

}  // namespace VelmCore
