#pragma once

#include <cstdint>
#include <string>

// Counts the lines that are written to a log from now on, through rotation and removal: it holds a
// read descriptor on the current file, which stays readable wherever the file goes, and counts that
// file's line feeds when the next one is made.
class LineCounter {
public:
    LineCounter() = default;
    ~LineCounter();
    LineCounter(const LineCounter&) = delete;
    LineCounter& operator=(const LineCounter&) = delete;

    // Begins at the present end of the log's current file. False if it can't be read.
    bool Begin(const std::string& path);
    // Counts what is there by now and goes on.
    uint64_t Count();
    // Counts what is left and ends.
    uint64_t Finish();
    // False if a file could not be followed, so that the number is too low.
    bool IsComplete() const { return m_Complete; }

private:
    void FollowNewFile();
    bool IsHeld(int fd) const;
    void ReadHeld();
    void CountHeld();

    std::string m_Path;
    int m_File = -1;
    uint64_t m_Lines = 0;
    bool m_Complete = true;
};
