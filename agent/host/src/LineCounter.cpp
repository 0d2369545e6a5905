#include "LineCounter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "velm/Files.h"

namespace {

uint64_t CountLineFeeds(const char* bytes, size_t length) {
    uint64_t count = 0;
    const char* end = bytes + length;
    while (const void* found = std::memchr(bytes, '\n', static_cast<size_t>(end - bytes))) {
        bytes = static_cast<const char*>(found) + 1;
        ++count;
    }
    return count;
}

int OpenForReading(const std::string& path) {
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

LineCounter::~LineCounter() {
    if (!m_Path.empty()) VelmCore::SetFileObserver({});
    if (m_File >= 0) close(m_File);
}

bool LineCounter::Begin(const std::string& path) {
    m_File = OpenForReading(path);
    if (m_File < 0 || lseek(m_File, 0, SEEK_END) < 0) return false;
    m_Path = path;
    VelmCore::SetFileObserver([this](const wxString& made) {
        if (made.utf8_string() == m_Path) FollowNewFile();
    });
    return true;
}

uint64_t LineCounter::Count() {
    ReadHeld();
    return m_Lines;
}

uint64_t LineCounter::Finish() {
    CountHeld();
    return m_Lines;
}

// An empty file is announced each time that it is opened, so the one that is held may come again.
void LineCounter::FollowNewFile() {
    const int fd = OpenForReading(m_Path);
    if (fd < 0) {
        m_Complete = false;
        return;
    }
    if (IsHeld(fd)) {
        close(fd);
        return;
    }
    CountHeld();
    m_File = fd;
}

bool LineCounter::IsHeld(int fd) const {
    struct stat held {
    }, other{};
    return m_File >= 0 && fstat(m_File, &held) == 0 && fstat(fd, &other) == 0 &&
           held.st_dev == other.st_dev && held.st_ino == other.st_ino;
}

// Reads from where the last reading ended.
void LineCounter::ReadHeld() {
    if (m_File < 0) return;
    char block[65536];
    ssize_t got = 0;
    while ((got = read(m_File, block, sizeof(block))) > 0 || (got < 0 && errno == EINTR)) {
        if (got > 0) m_Lines += CountLineFeeds(block, static_cast<size_t>(got));
    }
    if (got < 0) m_Complete = false;
}

void LineCounter::CountHeld() {
    ReadHeld();
    if (m_File >= 0) close(m_File);
    m_File = -1;
}
