#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace OSTREL {

// One piece of a log file, as a pass of the retrieval sees it.
struct LogLine {
    enum State { Whole, Corrupt };

    State state;
    char* text;         // the reader's memory, valid until Next; writable one byte behind `end`
    char* end;          // behind the text: its line end, its terminator, or the end of the piece
    char* scanEnd;      // behind what was looked at: `end`, or the first corrupt byte
    const char* third;  // the third comma in front of scanEnd, or null
    const char* last;   // the last comma in front of scanEnd, or null
};

// Reads a log file piece by piece: up to and including a line feed, at most 9,343 bytes at a time.
// A zero byte ends a piece's text, and so does a carriage return; what stands behind it up to the
// line feed is passed over.
class LogFileReader {
public:
    static constexpr size_t kMaxPiece = 9343;

    // `fd` stays the caller's.
    explicit LogFileReader(int fd);

    // Reads the next piece and looks for its commas and for bytes that no log line holds. False at
    // the end of the file, or when reading fails.
    bool Next(LogLine& line);
    // Drops bytes up to and including the next line feed. False if the file ended first. A corrupt
    // line stays valid.
    bool SkipLine();

private:
    bool Fill();
    void FindOddByte();
    void ScanBytes(LogLine& line);
    static void FindCommas(LogLine& line);

    int m_Fd;
    bool m_AtEnd = false;
    std::vector<char> m_Buffer;
    char* m_Next;  // the first byte that was not handed out
    char* m_End;   // behind the bytes that were read
    std::vector<char> m_Corrupt;
    char*
        m_Odd;  // the first byte from m_Next on that is neither printable nor a line feed, or m_End
};

}  // namespace OSTREL
