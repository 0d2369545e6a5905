#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Reference {

// A directory of a test's own, in memory where the host has such a place. Removed with all it
// holds.
class TempDirectory {
public:
    TempDirectory() {
        std::string pattern =
            access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : std::filesystem::temp_directory_path();
        pattern += "/ostrel-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
        m_Path = std::filesystem::path(pattern).lexically_normal();
    }
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path() const { return m_Path; }
    std::string Path(const std::string& name) const { return m_Path + "/" + name; }

private:
    std::string m_Path;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace Reference
