#include "FileText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

constexpr uintmax_t kMaximum = 64u << 20;

std::string ErrorText() {
    return std::strerror(errno);
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool IsLogFile(const std::string& file, const std::string& name) {
    if (file == name) return true;
    return file.compare(0, name.size() + 1, name + ".") == 0 &&
           IsNumber(file.substr(name.size() + 1));
}

}  // namespace

std::string WhyUnreadable(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return ErrorText();
    struct stat status {};
    const bool directory = fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    close(fd);
    return directory ? std::strerror(EISDIR) : "";
}

bool ReadFileText(const std::string& path, std::string& text, std::string& reason) {
    reason = WhyUnreadable(path);
    if (!reason.empty()) return false;
    std::ifstream file(path, std::ios::binary);
    char block[65536];
    text.clear();
    while (file.read(block, sizeof(block)) || file.gcount() > 0) {
        text.append(block, static_cast<size_t>(file.gcount()));
        if (text.size() <= kMaximum) continue;
        reason = "larger than 64 MiB";
        return false;
    }
    if (file.bad()) reason = "cannot be read";
    return reason.empty();
}

std::string WhyUnwritable(const std::string& directory, const std::string& name) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) return error.message();
    const int fd =
        open((fs::path(directory) / name).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return ErrorText();
    close(fd);
    return "";
}

std::string WhyNoLog(const std::string& directory, const std::string& name) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        if (IsLogFile(entry->path().filename(), name)) return "";
    }
    return error ? error.message() : "no log file of the name " + name;
}
