#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include <wx/string.h>

struct sqlite3;

namespace VelmCore {

using SettingValues = std::unordered_map<std::string, std::string>;

// The SQLite file behind the settings. One thread at a time.
//
// One table, `setting`, with the columns `key` and `value`, both text; the application id and the
// user version tell the file from others. Mode 0600.
class SettingsFile {
public:
    // Makes the file if there is none, checks it, and reads it into `values`. Empty, or why not: an
    // existing file then stays as it is.
    wxString Open(const wxString& path, SettingValues& values);
    bool IsOpen() const { return m_Database != nullptr; }
    // Writes all of `changes` or nothing. Empty, or why not.
    wxString Write(const SettingValues& changes);

private:
    struct Closer {
        void operator()(sqlite3* database) const;
    };
    using Database = std::unique_ptr<sqlite3, Closer>;

    static wxString MakeFile(const std::string& path);
    static wxString Connect(const std::string& path, Database& database);
    static wxString Check(sqlite3* database);
    static wxString CheckWritable(sqlite3* database);
    static wxString Read(sqlite3* database, SettingValues& values);

    Database m_Database;
    wxString m_Path;
};

}  // namespace VelmCore
