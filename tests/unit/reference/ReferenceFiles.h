#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ReferenceEvents.h"

namespace Reference {

// What a log leaves behind besides its files.
struct Traces {
    std::vector<Event> events;
    std::vector<std::string> secured;           // paths whose permissions were set
    std::map<std::string, long long> settings;  // by key
    unsigned int lostOldest = 0;                // warnings that no oldest record was found
};

// A log's files, held in memory. A file that is open stays what it is when it is renamed or
// deleted, as on disk.
class Files {
public:
    enum Place { Present, Missing, Blocked };  // Blocked: a file stands where the directory goes

    Files(const std::string& directory, Traces& traces)
        : m_Directory(directory), m_Traces(traces) {}

    bool Initialize();
    bool WriteLine(const std::string& line);
    bool CloseAndRotate();

    std::string Path(const std::string& file) const { return m_Directory + "/" + file; }
    bool IsOpen() const { return m_Open != nullptr; }

    // Settings of the log.
    std::string name;
    long sizeKB = 1024;
    int copies = 7;

    // The directory and its content.
    Place place = Present;
    std::map<std::string, std::shared_ptr<std::string>> files;  // name to bytes
    std::set<std::string> folders;                              // directories by name

private:
    bool Rotate();
    bool RemoveOld();
    void Rename(const std::string& from, const std::string& to);
    void Report(int number, const std::string& text) { m_Traces.events.push_back({number, text}); }

    std::string m_Directory;
    Traces& m_Traces;
    std::shared_ptr<std::string> m_Open;
};

}  // namespace Reference
