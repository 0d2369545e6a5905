#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

// A directory of the test's own, gone with it.
class TestDirectory {
public:
    TestDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "velm_core.XXXXXX").string();
        if (!mkdtemp(name.data())) abort();
        m_Path = name;
    }
    ~TestDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    std::string Path(const std::string& name) const { return m_Path + "/" + name; }
    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline unsigned int ModeOf(const std::string& path) {
    return static_cast<unsigned int>(std::filesystem::status(path).permissions());
}
