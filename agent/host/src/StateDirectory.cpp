#include "StateDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// Parents are made with the process's mask, the directory itself for its owner alone.
std::string MakeDirectory(const std::string& path) {
    std::error_code error;
    const fs::path parent = fs::path(path).parent_path();
    if (!parent.empty()) fs::create_directories(parent, error);
    if (error) return error.message();
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return std::strerror(errno);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return std::strerror(errno);
    if (!S_ISDIR(info.st_mode)) return std::strerror(ENOTDIR);
    if ((info.st_mode & S_IWOTH) != 0) return "everybody may write to it";
    return "";
}

// The number of the process that holds the lock, for the message.
std::string Holder(int fd) {
    char text[32] = "";
    const ssize_t got = pread(fd, text, sizeof(text) - 1, 0);
    std::string number(text, got > 0 ? static_cast<size_t>(got) : 0);
    number.erase(number.find_last_not_of('\n') + 1);
    return number.empty() ? "another process" : "process " + number;
}

}  // namespace

StateDirectory::~StateDirectory() {
    if (m_Lock >= 0) close(m_Lock);
}

std::string StateDirectory::Take(const std::string& path) {
    std::string reason = MakeDirectory(path);
    if (reason.empty()) reason = Lock(path + "/lock");
    return reason;
}

// The kernel frees the lock with the process, however that ends; the file stays.
std::string StateDirectory::Lock(const std::string& file) {
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return "lock: " + std::string(std::strerror(errno));
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        const std::string holder = Holder(fd);
        close(fd);
        if (error == EWOULDBLOCK) return "a service already runs on it (" + holder + ")";
        return "lock: " + std::string(std::strerror(error));
    }
    m_Lock = fd;
    const std::string number = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) != 0 ||
        pwrite(fd, number.data(), number.size(), 0) != static_cast<ssize_t>(number.size()))
        return "lock: " + std::string(std::strerror(errno));
    return "";
}
