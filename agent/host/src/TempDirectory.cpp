#include "TempDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    if (!m_Path.empty()) fs::remove_all(m_Path, ignored);
}

const std::string& TempDirectory::Path() {
    if (!m_Path.empty()) return m_Path;
    std::string name = fs::temp_directory_path() / "velm_replay.XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), name);
    m_Path = name;
    return m_Path;
}
