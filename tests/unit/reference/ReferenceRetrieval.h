#pragma once

#include <string>
#include <vector>

#include "ReferenceEvents.h"

// The retrieval of records in the plainest way: the files are read with fgets and fgetc.
namespace Reference {

// One delivered record.
struct Delivery {
    long lineTime;
    long slack;
    std::string text;

    bool operator==(const Delivery& other) const {
        return lineTime == other.lineTime && slack == other.slack && text == other.text;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Delivery& delivery) {
    return out << delivery.lineTime << " +-" << delivery.slack << " \"" << delivery.text << '"';
}

// What one call asks for.
struct Window {
    int driver;  // 0: packet logs; 1 and 2: payload logs
    long startTime;
    long endTime;
    size_t most;  // the callback ends the retrieval at this delivery
};

// Stands for one log over many calls.
class Retrieval {
public:
    Retrieval(const std::string& directory, const std::string& name)
        : m_Directory(directory), m_Name(name) {}

    // The deliveries of one call.
    std::vector<Delivery> Run(const Window& window);

    long slack = 1800;               // seconds
    unsigned int bookmarks[3] = {};  // by driver
    std::vector<Event> events;
    unsigned int corruptFiles = 0;  // warnings

private:
    struct Pass;
    enum Outcome { NextLine, EndOfFile, EndOfRetrieval };

    std::vector<std::string> ListFiles() const;  // the oldest first
    Outcome ReadFile(const Window& window, const std::string& file, std::vector<Delivery>& found);
    bool ScanLine(Pass& pass);
    Outcome JudgeLine(const Window& window, Pass& pass, std::vector<Delivery>& found);
    bool IsWantedLate(const Window& window, const Pass& pass);

    std::string m_Directory;
    std::string m_Name;
    bool m_IsFirst[3] = {true, true, false};
    std::string m_LastCorrupt;
};

}  // namespace Reference
