#pragma once

#include <string>

// A directory of our own below TMPDIR, made when first asked for and removed, with all that is in
// it, in the end.
class TempDirectory {
public:
    TempDirectory() = default;
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path();

private:
    std::string m_Path;
};
