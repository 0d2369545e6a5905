#include "SettingsFile.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Utf8.h"
#include "velm/Text.h"

namespace VelmCore {
namespace {

constexpr int APPLICATION_ID = 0x56656C6D;
constexpr int SCHEMA_VERSION = 1;
constexpr int BUSY_MSEC = 1000;

const char* const SCHEMA =
    "BEGIN IMMEDIATE;"
    "PRAGMA application_id = 1449487469;"
    "PRAGMA user_version = 1;"
    "CREATE TABLE setting (key TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL);"
    "COMMIT;";
static_assert(APPLICATION_ID == 1449487469 && SCHEMA_VERSION == 1, "as written in the schema");

struct Finalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

wxString ErrorText(sqlite3* database) {
    return FromUtf8(sqlite3_errmsg(database));
}

wxString Execute(sqlite3* database, const char* sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return wxString();
    return ErrorText(database);
}

Statement Prepare(sqlite3* database, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    return Statement(statement);
}

std::string ColumnText(sqlite3_stmt* row, int column) {
    const unsigned char* text = sqlite3_column_text(row, column);
    const int length = sqlite3_column_bytes(row, column);
    return text ? std::string(text, text + length) : std::string();
}

// All rows of a query, the columns of a row joined by bars.
wxString QueryText(sqlite3* database, const char* sql, std::string& text) {
    const Statement query = Prepare(database, sql);
    if (!query) return ErrorText(database);
    int result;
    while ((result = sqlite3_step(query.get())) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(query.get()); ++i) {
            if (!text.empty()) text += '|';
            text += ColumnText(query.get(), i);
        }
    }
    return result == SQLITE_DONE ? wxString() : ErrorText(database);
}

// Fails unless the query's answer is `expected`.
wxString Expect(sqlite3* database, const char* sql, const std::string& expected,
                const wxString& otherwise) {
    std::string answer;
    const wxString reason = QueryText(database, sql, answer);
    if (!reason.empty()) return reason;
    return answer == expected ? wxString() : otherwise;
}

bool BindText(sqlite3_stmt* statement, int index, const std::string& text) {
    return sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC,
                               SQLITE_UTF8) == SQLITE_OK;
}

wxString SystemError(const char* what) {
    const int error = errno;
    return wxString::Format("%s: %s", what, ErrnoToString(error));
}

bool SyncDirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int directory = open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return false;
    const bool done = fsync(directory) == 0;
    close(directory);
    return done;
}

}  // namespace

void SettingsFile::Closer::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

wxString SettingsFile::Open(const wxString& path, SettingValues& values) {
    const std::string name(path.fn_str());
    const wxString prefix = wxString::Format("settings file %s: ", path);
    struct stat info;
    if (stat(name.c_str(), &info) != 0) {
        const wxString reason = errno == ENOENT ? MakeFile(name) : SystemError("cannot be opened");
        if (!reason.empty()) return prefix + reason;
    } else if (!S_ISREG(info.st_mode)) {
        return prefix + "not a regular file";
    }
    Database database;
    SettingValues stored;
    wxString reason = Connect(name, database);
    if (reason.empty()) reason = Check(database.get());
    if (reason.empty()) reason = Read(database.get(), stored);
    if (reason.empty()) reason = CheckWritable(database.get());
    if (reason.empty() && chmod(name.c_str(), 0600) != 0) reason = SystemError("cannot be secured");
    if (!reason.empty()) return prefix + reason;
    m_Database = std::move(database);
    m_Path = path;
    values = std::move(stored);
    return wxString();
}

// Made under another name first, so that an empty or half-made file never bears the real one: such
// a file is damage.
wxString SettingsFile::MakeFile(const std::string& path) {
    std::string draft = path + ".XXXXXX";
    const int file = mkstemp(draft.data());  // mode 0600
    if (file < 0) return SystemError("cannot be made");
    close(file);
    Database database;
    wxString reason = Connect(draft, database);
    if (reason.empty()) reason = Execute(database.get(), SCHEMA);
    database.reset();
    // A file that another process has made in the meantime is taken as it is.
    if (reason.empty() && link(draft.c_str(), path.c_str()) != 0 && errno != EEXIST) {
        reason = SystemError("cannot be made");
    }
    unlink(draft.c_str());
    if (reason.empty() && !SyncDirectoryOf(path)) reason = SystemError("cannot be made durable");
    return reason;
}

wxString SettingsFile::Connect(const std::string& path, Database& database) {
    char real[PATH_MAX];  // an absolute path has no special meaning to the library
    if (!realpath(path.c_str(), real)) return SystemError("cannot be opened");
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(real, &handle, SQLITE_OPEN_READWRITE, nullptr);
    database.reset(handle);
    if (result != SQLITE_OK) return handle ? ErrorText(handle) : wxString("out of memory");
    sqlite3_busy_timeout(handle, BUSY_MSEC);
    return Execute(handle, "PRAGMA trusted_schema = OFF; PRAGMA cell_size_check = ON");
}

wxString SettingsFile::Check(sqlite3* database) {
    const wxString foreign = "not a settings file of this agent";
    wxString reason =
        Expect(database, "PRAGMA application_id", std::to_string(APPLICATION_ID), foreign);
    if (!reason.empty()) return reason;
    reason = Expect(database, "PRAGMA user_version", std::to_string(SCHEMA_VERSION),
                    "made by another version of the agent");
    if (!reason.empty()) return reason;
    reason = Expect(database, "PRAGMA quick_check", "ok", "damaged");
    if (!reason.empty()) return reason;
    return Expect(
        database,
        "SELECT name, type, \"notnull\", pk FROM pragma_table_info('setting') ORDER BY cid",
        "key|TEXT|1|1|value|TEXT|1|0", "damaged: its table has another shape");
}

// Opening for writing quietly falls back to reading, so a write is tried.
wxString SettingsFile::CheckWritable(sqlite3* database) {
    return Execute(database, "BEGIN IMMEDIATE; PRAGMA user_version = 1; COMMIT");
}

wxString SettingsFile::Read(sqlite3* database, SettingValues& values) {
    const Statement query = Prepare(database, "SELECT key, value FROM setting");
    if (!query) return ErrorText(database);
    int result;
    while ((result = sqlite3_step(query.get())) == SQLITE_ROW) {
        values[ColumnText(query.get(), 0)] = ColumnText(query.get(), 1);
    }
    return result == SQLITE_DONE ? wxString() : ErrorText(database);
}

wxString SettingsFile::Write(const SettingValues& changes) {
    sqlite3* database = m_Database.get();
    const wxString prefix = wxString::Format("settings file %s: ", m_Path);
    wxString reason = Execute(database, "BEGIN IMMEDIATE");
    if (!reason.empty()) return prefix + reason;
    {
        const Statement insert =
            Prepare(database, "INSERT OR REPLACE INTO setting (key, value) VALUES (?1, ?2)");
        if (!insert) reason = ErrorText(database);
        for (auto change = changes.begin(); reason.empty() && change != changes.end(); ++change) {
            sqlite3_reset(insert.get());
            const bool done = BindText(insert.get(), 1, change->first) &&
                              BindText(insert.get(), 2, change->second) &&
                              sqlite3_step(insert.get()) == SQLITE_DONE;
            if (!done) reason = ErrorText(database);
        }
    }
    if (reason.empty()) reason = Execute(database, "COMMIT");
    if (reason.empty()) return reason;
    if (!sqlite3_get_autocommit(database)) Execute(database, "ROLLBACK");
    return prefix + reason;
}

}  // namespace VelmCore
