#include "ReferenceRetrieval.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Reference {

namespace {

// 0 unless the whole extension is a number.
long NumberOf(const std::string& name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot + 1 == name.size()) return 0;
    char* end;
    const long number = strtol(name.c_str() + dot + 1, &end, 10);
    return *end == '\0' ? number : 0;
}

}  // namespace

// One file on its way, with the line at hand.
struct Retrieval::Pass {
    std::string path;
    FILE* file;
    bool isPrimary;
    unsigned int lineNumber;
    bool atFirstLine;
    char buffer[9344];
    int thirdComma;  // 0: there is none
    int lastComma;
    long lineTime;
};

std::vector<std::string> Retrieval::ListFiles() const {
    std::vector<std::string> names;
    DIR* directory = opendir(m_Directory.c_str());
    if (directory == nullptr) return names;
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name.compare(0, m_Name.size(), m_Name) == 0) names.push_back(name);
    }
    closedir(directory);
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return NumberOf(a) > NumberOf(b); });
    return names;
}

std::vector<Delivery> Retrieval::Run(const Window& window) {
    std::vector<Delivery> found;
    for (const std::string& file : ListFiles()) {
        if (ReadFile(window, file, found) == EndOfRetrieval) break;
    }
    m_IsFirst[window.driver] = false;
    return found;
}

Retrieval::Outcome Retrieval::ReadFile(const Window& window, const std::string& file,
                                       std::vector<Delivery>& found) {
    Pass pass;
    pass.path = m_Directory + "/" + file;
    pass.isPrimary = file == m_Name;
    pass.lineNumber = 0;
    pass.atFirstLine = true;
    struct stat status;
    if (window.startTime != 0) {
        if (stat(pass.path.c_str(), &status) != 0) return EndOfFile;
        if (window.startTime > status.st_mtime) return EndOfFile;
    }
    pass.file = fopen(pass.path.c_str(), "r");
    if (pass.file == nullptr) {
        events.push_back({3001, file.substr(0, 64) + "|" + strerror(errno)});
        return EndOfFile;
    }
    Outcome outcome = NextLine;
    while (outcome == NextLine && !feof(pass.file)) {
        if (fgets(pass.buffer, sizeof pass.buffer, pass.file) == nullptr) break;
        if (ScanLine(pass)) outcome = JudgeLine(window, pass, found);
        ++pass.lineNumber;
        pass.atFirstLine = false;
    }
    fclose(pass.file);
    return outcome;
}

// False if the line is skipped for its bytes.
bool Retrieval::ScanLine(Pass& pass) {
    int commas = 0;
    pass.thirdComma = 0;
    pass.lastComma = 0;
    for (int i = 0; pass.buffer[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(pass.buffer[i]);
        if (c == '\n' || c == '\r') {
            pass.buffer[i] = '\0';
            break;
        }
        if (c < 0x20 || c > 0x7E) {
            if (pass.path != m_LastCorrupt) ++corruptFiles;
            m_LastCorrupt = pass.path;
            int dropped;
            do {
                dropped = fgetc(pass.file);
            } while (dropped != EOF && dropped != '\n');
            if (dropped == '\n') return false;
            break;
        }
        if (c == ',') {
            pass.lastComma = i;
            if (++commas == 3) pass.thirdComma = i;
        }
    }
    return pass.thirdComma != 0;
}

// Whether `later` is more than `seconds` after `earlier`, also where their sum has no value.
static bool IsMoreThan(long seconds, long earlier, long later) {
    if (later <= earlier) return false;
    const unsigned long distance =
        static_cast<unsigned long>(later) - static_cast<unsigned long>(earlier);
    return distance > static_cast<unsigned long>(seconds);
}

Retrieval::Outcome Retrieval::JudgeLine(const Window& window, Pass& pass,
                                        std::vector<Delivery>& found) {
    const char* text = pass.buffer;
    const int length = static_cast<int>(strlen(text));
    if (text[pass.thirdComma - 1] != (window.driver == 0 ? 'f' : 'd')) return NextLine;
    // What stands behind the terminator is of an earlier line.
    const int number = std::min(pass.lastComma + 2, length);
    const long long usec = strtoll(text + number, nullptr, 10);
    pass.lineTime = static_cast<long>(usec / 1000000);
    if (usec == 0 || pass.lineTime == -1) return NextLine;

    const bool hasEnd = window.endTime != 0;
    const bool isBeyondSlack = hasEnd && IsMoreThan(slack, window.endTime, pass.lineTime);
    if (isBeyondSlack && pass.atFirstLine) return EndOfFile;
    if (window.startTime != 0 && pass.lineTime < window.startTime && !IsWantedLate(window, pass)) {
        return NextLine;
    }
    if (isBeyondSlack) return EndOfFile;
    if (hasEnd && pass.lineTime > window.endTime) return NextLine;
    if (pass.isPrimary && pass.lineNumber > bookmarks[window.driver]) {
        bookmarks[window.driver] = pass.lineNumber;
    }
    found.push_back({pass.lineTime, slack, text + std::min(22, length)});
    return found.size() < window.most ? NextLine : EndOfRetrieval;
}

bool Retrieval::IsWantedLate(const Window& window, const Pass& pass) {
    if (!pass.isPrimary) return false;
    if (pass.lineNumber <= bookmarks[window.driver]) return false;
    if (IsMoreThan(slack, pass.lineTime, window.startTime)) return false;
    if (m_IsFirst[window.driver]) {
        bookmarks[window.driver] = pass.lineNumber;
        return false;
    }
    return true;
}

}  // namespace Reference
