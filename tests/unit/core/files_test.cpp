#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include <gtest/gtest.h>

#include "TestDirectory.h"
#include "velm/Files.h"
#include "velm/Trace.h"

namespace {

using namespace VelmCore;

class SecureFiles : public ::testing::Test {
protected:
    ~SecureFiles() override { SetFileObserver(nullptr); }

    std::string MakeFile(const std::string& name, mode_t mode) {
        const std::string path = m_Directory.Path(name);
        WriteFile(path, "content");
        chmod(path.c_str(), mode);
        return path;
    }

    TestDirectory m_Directory;
};

TEST_F(SecureFiles, AFileOfTheOwnersOnlyStaysAsItIs) {
    const std::string path = MakeFile("a", 0600);
    SecureFileOrDirectory(path, false);
    EXPECT_EQ(ModeOf(path), 0600u);
}

TEST_F(SecureFiles, OthersLoseTheirAccess) {
    const std::string path = MakeFile("a", 0666);
    SecureFileOrDirectory(path, false);
    EXPECT_EQ(ModeOf(path), 0660u);
    EXPECT_EQ(ReadFile(path), "content");
}

TEST_F(SecureFiles, ADirectoryIsClosedToOthers) {
    const std::string path = m_Directory.Path("logs");
    mkdir(path.c_str(), 0700);
    chmod(path.c_str(), 0755);
    SecureFileOrDirectory(path, false);
    EXPECT_EQ(ModeOf(path), 0750u);
}

TEST_F(SecureFiles, TheTargetOfALinkIsLeftAlone) {
    const std::string path = MakeFile("a", 0644);
    ASSERT_EQ(symlink(path.c_str(), m_Directory.Path("link").c_str()), 0);
    SecureFileOrDirectory(m_Directory.Path("link"), false);
    EXPECT_EQ(ModeOf(path), 0644u);
}

TEST_F(SecureFiles, AFailureIsTraced) {
    EnableTrace("velm.core", true);
    TakeTrace();
    SecureFileOrDirectory(m_Directory.Path("missing"), false);
    EnableTrace("velm.core", false);
    const std::vector<TraceLine> lines = TakeTrace();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message,
              "cannot secure " + m_Directory.Path("missing") + ": No such file or directory");
}

TEST_F(SecureFiles, TheObserverSeesEachPathWithItsPermissionsSet) {
    const std::string path = MakeFile("a", 0644);
    std::vector<std::pair<std::string, unsigned int>> seen;
    SetFileObserver([&](const wxString& name) {
        seen.emplace_back(name.ToStdString(), ModeOf(name.ToStdString()));
    });
    SecureFileOrDirectory(path, false);
    SetFileObserver(nullptr);
    SecureFileOrDirectory(path, false);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].first, path);
    EXPECT_EQ(seen[0].second, 0640u);
}

}  // namespace
