#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// A directory of the test's own, which goes with it.
class TempDirectory {
public:
    TempDirectory() {
        std::string pattern = std::filesystem::temp_directory_path() / "ostrel.XXXXXX";
        m_Path = mkdtemp(&pattern[0]);
    }
    ~TempDirectory() { std::filesystem::remove_all(m_Path); }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path() const { return m_Path; }
    std::string Path(const std::string& name) const { return m_Path + "/" + name; }

    void Plant(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    bool Has(const std::string& name) const { return std::filesystem::exists(Path(name)); }
    std::string Read(const std::string& name) const {
        std::ostringstream content;
        content << std::ifstream(Path(name), std::ios::binary).rdbuf();
        return content.str();
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_Path)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    // Sets the time of the last change, seconds since the epoch.
    void SetChangeTime(const std::string& name, time_t seconds) const {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        utimensat(AT_FDCWD, Path(name).c_str(), times, 0);
    }

private:
    std::string m_Path;
};
