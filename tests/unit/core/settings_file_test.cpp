#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestDirectory.h"
#include "velm/Dom.h"
#include "velm/Log.h"

namespace {

using namespace VelmCore;

// Another program's hand on the file.
class Sqlite {
public:
    explicit Sqlite(const std::string& path) { sqlite3_open(path.c_str(), &m_Database); }
    ~Sqlite() { sqlite3_close(m_Database); }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void Run(const char* sql) {
        ASSERT_EQ(sqlite3_exec(m_Database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(m_Database);
    }

    // The first column of the first row.
    std::string Ask(const char* sql) {
        sqlite3_stmt* query = nullptr;
        sqlite3_prepare_v2(m_Database, sql, -1, &query, nullptr);
        std::string answer;
        if (sqlite3_step(query) == SQLITE_ROW && sqlite3_column_text(query, 0)) {
            answer = reinterpret_cast<const char*>(sqlite3_column_text(query, 0));
        }
        sqlite3_finalize(query);
        return answer;
    }

private:
    sqlite3* m_Database = nullptr;
};

class SettingsFile : public ::testing::Test {
protected:
    std::string Open(const std::string& path) {
        m_Dom = std::make_unique<CDom>();
        return m_Dom->OpenSettings(path).ToStdString();
    }

    // As the next run of the agent sees it.
    std::string ValueAfterRestart(const std::string& key) {
        m_Dom.reset();
        EXPECT_EQ(Open(m_File), "");
        return m_Dom->Get(key);
    }

    void MakeWithManyValues() {
        ASSERT_EQ(Open(m_File), "");
        for (int i = 0; i < 2000; ++i)
            m_Dom->SetText("key" + std::to_string(i), "some value");
        m_Dom.reset();
    }

    // Opening fails with `why`, and the file stays as it is.
    void ExpectRefused(const std::string& why) {
        const std::string before = ReadFile(m_File);
        EXPECT_EQ(Open(m_File), "settings file " + m_File + ": " + why);
        EXPECT_EQ(ReadFile(m_File), before);
    }

    TestDirectory m_Directory;
    const std::string m_File = m_Directory.Path("settings");
    std::unique_ptr<CDom> m_Dom;
};

TEST_F(SettingsFile, IsMadeForTheOwnerOnlyAndNothingElseIsLeft) {
    const mode_t before = umask(0);
    EXPECT_EQ(Open(m_File), "");
    m_Dom->Set("key", 1);
    EXPECT_TRUE(m_Dom->FlushSettings());
    umask(before);
    EXPECT_EQ(ModeOf(m_File), 0600u);
    m_Dom.reset();
    for (const auto& entry : std::filesystem::directory_iterator(m_Directory.Path())) {
        EXPECT_EQ(entry.path().string(), m_File);
    }
}

TEST_F(SettingsFile, TakesAccessFromOthersWhenOpened) {
    MakeWithManyValues();
    chmod(m_File.c_str(), 0644);
    EXPECT_EQ(Open(m_File), "");
    EXPECT_EQ(ModeOf(m_File), 0600u);
}

TEST_F(SettingsFile, KeepsValuesOverARestart) {
    ASSERT_EQ(Open(m_File), "");
    m_Dom->Set("plg.ostrel.lastline.packet", 123456789012LL);
    m_Dom->SetText("uuid", "\xC3\xA9 'quoted'");
    m_Dom->SetText("bytes", std::string("a\0b", 3));
    m_Dom->SetText("empty", "");
    EXPECT_EQ(ValueAfterRestart("plg.ostrel.lastline.packet"), "123456789012");
    EXPECT_EQ(m_Dom->Get("uuid"), "\xC3\xA9 'quoted'");
    EXPECT_EQ(m_Dom->Get("bytes"), std::string("a\0b", 3));
    bool value = true;
    EXPECT_TRUE(m_Dom->Get("empty", value));
}

TEST_F(SettingsFile, KeepsTheLastOfSeveralValues) {
    ASSERT_EQ(Open(m_File), "");
    for (int i = 0; i < 100; ++i)
        m_Dom->Set("key", i);
    EXPECT_EQ(ValueAfterRestart("key"), "99");
    m_Dom->Set("key", 5);
    EXPECT_TRUE(m_Dom->FlushSettings());
    m_Dom->Set("key", 6);
    EXPECT_EQ(ValueAfterRestart("key"), "6");
}

TEST_F(SettingsFile, ValuesSetBeforeOpeningStand) {
    ASSERT_EQ(Open(m_File), "");
    m_Dom->Set("a", 1);
    m_Dom->Set("b", 1);
    m_Dom = std::make_unique<CDom>();
    m_Dom->Set("b", 2);
    m_Dom->Set("c", 2);
    ASSERT_EQ(m_Dom->OpenSettings(m_File), "");
    EXPECT_EQ(m_Dom->Get("a") + m_Dom->Get("b") + m_Dom->Get("c"), "122");
    EXPECT_EQ(ValueAfterRestart("b"), "2");
    EXPECT_EQ(m_Dom->Get("c"), "2");
}

TEST_F(SettingsFile, FlushedValuesSurviveAKill) {
    const pid_t child = fork();
    if (child == 0) {
        CDom dom;
        if (!dom.OpenSettings(m_File).empty()) _exit(1);
        dom.Set("key", 7);
        if (dom.FlushSettings()) kill(getpid(), SIGKILL);
        _exit(2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(ValueAfterRestart("key"), "7");
}

TEST_F(SettingsFile, AChangeIsWrittenUnasked) {
    ASSERT_EQ(Open(m_File), "");
    m_Dom->Set("key", 7);
    Sqlite other(m_File);
    const auto begin = std::chrono::steady_clock::now();
    std::string value;
    std::chrono::duration<double> waited{};
    while (value.empty() && waited.count() < 3) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        value = other.Ask("SELECT value FROM setting WHERE key = 'key'");
        waited = std::chrono::steady_clock::now() - begin;
    }
    EXPECT_EQ(value, "7");
    EXPECT_LT(waited.count(), 3);  // one second, and what a busy machine adds
}

TEST_F(SettingsFile, OnlyOneCanBeOpen) {
    ASSERT_EQ(Open(m_File), "");
    EXPECT_EQ(m_Dom->OpenSettings(m_File), "settings file " + m_File + ": one is open already");
}

TEST_F(SettingsFile, ANameWithAMeaningToTheLibraryIsAFile) {
    const std::string before = std::filesystem::current_path().string();
    std::filesystem::current_path(m_Directory.Path());
    EXPECT_EQ(Open(":memory:"), "");
    m_Dom->Set("key", 1);
    EXPECT_TRUE(m_Dom->FlushSettings());
    m_Dom.reset();
    EXPECT_EQ(Open(":memory:"), "");
    EXPECT_EQ(m_Dom->Get("key"), "1");
    std::filesystem::current_path(before);
}

TEST_F(SettingsFile, AnEmptyFileIsDamage) {
    WriteFile(m_File, "");
    ExpectRefused("not a settings file of this agent");
}

TEST_F(SettingsFile, AFileOfAnotherKindIsRefused) {
    WriteFile(m_File, std::string(5000, 'x'));
    ExpectRefused("file is not a database");
}

TEST_F(SettingsFile, ADatabaseOfAnotherProgramIsRefused) {
    Sqlite(m_File).Run("CREATE TABLE setting (key TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL)");
    ExpectRefused("not a settings file of this agent");
}

TEST_F(SettingsFile, AnotherVersionIsRefused) {
    MakeWithManyValues();
    Sqlite(m_File).Run("PRAGMA user_version = 2");
    ExpectRefused("made by another version of the agent");
}

TEST_F(SettingsFile, ATableOfAnotherShapeIsRefused) {
    MakeWithManyValues();
    Sqlite(m_File).Run("ALTER TABLE setting ADD COLUMN extra TEXT");
    ExpectRefused("damaged: its table has another shape");
}

TEST_F(SettingsFile, AMissingTableIsRefused) {
    MakeWithManyValues();
    Sqlite(m_File).Run("DROP TABLE setting");
    ExpectRefused("damaged: its table has another shape");
}

TEST_F(SettingsFile, ATruncatedFileIsRefused) {
    MakeWithManyValues();
    ASSERT_EQ(truncate(m_File.c_str(), static_cast<off_t>(std::filesystem::file_size(m_File) / 2)),
              0);
    ExpectRefused("database disk image is malformed");
}

TEST_F(SettingsFile, AFileWithADamagedPageIsRefused) {
    MakeWithManyValues();
    std::string bytes = ReadFile(m_File);
    const size_t page = 4096;
    ASSERT_GT(bytes.size(), 4 * page);
    bytes.replace(2 * page, page, page, '\xA5');
    WriteFile(m_File, bytes);
    const std::string reason = Open(m_File);
    EXPECT_EQ(reason.find("settings file " + m_File + ": "), 0u);
    EXPECT_TRUE(reason.find("damaged") != std::string::npos ||
                reason.find("malformed") != std::string::npos)
        << reason;
    EXPECT_EQ(ReadFile(m_File), bytes);
}

TEST_F(SettingsFile, AFileThatAnotherProgramLocksIsRefused) {
    MakeWithManyValues();
    Sqlite other(m_File);
    other.Run("BEGIN EXCLUSIVE");
    ExpectRefused("database is locked");
}

TEST_F(SettingsFile, AMissingDirectoryIsAnError) {
    const std::string path = m_Directory.Path("missing/settings");
    EXPECT_EQ(Open(path), "settings file " + path + ": cannot be made: No such file or directory");
}

TEST_F(SettingsFile, ADirectoryInItsPlaceIsAnError) {
    EXPECT_EQ(Open(m_Directory.Path()),
              "settings file " + m_Directory.Path() + ": not a regular file");
}

// Opens as an ordinary user, since root may write anywhere.
class SettingsFileOfAUser : public SettingsFile {
protected:
    static constexpr uid_t NOBODY = 65534;

    std::string OpenAsUser() {
        if (geteuid() != 0) return Open(m_File);
        EXPECT_EQ(seteuid(NOBODY), 0);
        const std::string reason = Open(m_File);
        EXPECT_EQ(seteuid(0), 0);
        return reason;
    }
};

TEST_F(SettingsFileOfAUser, AReadOnlyDirectoryIsAnError) {
    chmod(m_Directory.Path().c_str(), 0555);
    EXPECT_EQ(OpenAsUser(), "settings file " + m_File + ": cannot be made: Permission denied");
    chmod(m_Directory.Path().c_str(), 0755);
}

TEST_F(SettingsFileOfAUser, AFileInAReadOnlyDirectoryIsAnError) {
    MakeWithManyValues();
    chmod(m_File.c_str(), 0666);
    chmod(m_Directory.Path().c_str(), 0555);
    EXPECT_EQ(OpenAsUser(), "settings file " + m_File + ": attempt to write a readonly database");
    chmod(m_Directory.Path().c_str(), 0755);
}

TEST_F(SettingsFileOfAUser, AReadOnlyFileIsAnError) {
    MakeWithManyValues();
    chmod(m_File.c_str(), 0444);
    chmod(m_Directory.Path().c_str(), 0777);
    EXPECT_EQ(OpenAsUser(), "settings file " + m_File + ": attempt to write a readonly database");
}

TEST_F(SettingsFile, AFailedWriteIsReportedOnceAndMadeUpFor) {
    InstallLog("");
    ASSERT_EQ(Open(m_File), "");
    TakeLog();
    {
        Sqlite other(m_File);
        other.Run("BEGIN EXCLUSIVE");
        m_Dom->Set("key", 7);
        EXPECT_FALSE(m_Dom->FlushSettings());
        EXPECT_FALSE(m_Dom->FlushSettings());
        EXPECT_EQ(m_Dom->Get("key"), "7");
    }
    EXPECT_TRUE(m_Dom->FlushSettings());
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, "error");
    EXPECT_EQ(lines[0].text, "settings file " + m_File + ": database is locked; trying again");
    EXPECT_EQ(lines[1].text, "settings are written again");
    EXPECT_EQ(ValueAfterRestart("key"), "7");
}

TEST_F(SettingsFile, WhatCannotBeWrittenAtExitIsTold) {
    InstallLog("");
    ASSERT_EQ(Open(m_File), "");
    TakeLog();
    Sqlite other(m_File);
    other.Run("BEGIN EXCLUSIVE");
    m_Dom->Set("a", 1);
    m_Dom->Set("b", 1);
    m_Dom.reset();
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().text, "2 settings could not be written");
}

}  // namespace
