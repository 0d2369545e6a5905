#include "ReplaceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

class File {
public:
    explicit File(int fd) : m_Fd(fd) {}
    ~File() {
        if (m_Fd >= 0) close(m_Fd);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int Get() const { return m_Fd; }
    bool IsOpen() const { return m_Fd >= 0; }

private:
    int m_Fd;
};

bool WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) done += static_cast<size_t>(written);
    }
    return true;
}

// A link that stands where the temporary file goes is removed, not followed.
bool WriteNew(const std::string& path, const std::string& text, mode_t mode, bool durable) {
    unlink(path.c_str());
    const File file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.IsOpen()) return false;
    return WriteAll(file.Get(), text) && fchmod(file.Get(), mode) == 0 &&
           (!durable || fsync(file.Get()) == 0);
}

bool SyncDirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const File directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.IsOpen() && fsync(directory.Get()) == 0;
}

}  // namespace

std::string ReplaceFile(const std::string& path, const std::string& text, mode_t mode,
                        bool durable) {
    const std::string temporary = path + ".new";
    if (WriteNew(temporary, text, mode, durable) &&
        std::rename(temporary.c_str(), path.c_str()) == 0 && (!durable || SyncDirectoryOf(path)))
        return "";
    const int error = errno;
    unlink(temporary.c_str());
    return std::strerror(error);
}

std::string EndTornLine(const std::string& path) {
    const File file(open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen()) return errno == ENOENT ? "" : std::strerror(errno);
    struct stat info {};
    char last = '\n';
    if (fstat(file.Get(), &info) != 0) return std::strerror(errno);
    if (!S_ISREG(info.st_mode) || info.st_size == 0) return "";
    if (pread(file.Get(), &last, 1, info.st_size - 1) != 1) return std::strerror(errno);
    if (last == '\n' || WriteAll(file.Get(), "\n")) return "";
    return std::strerror(errno);
}
