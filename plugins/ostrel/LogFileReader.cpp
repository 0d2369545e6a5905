#include "LogFileReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace OSTREL {

namespace {

constexpr size_t kBufferSize = 128 * 1024;

bool IsPrintable(char c) {
    return c >= 0x20 && c <= 0x7E;
}
bool IsOdd(char c) {
    return !IsPrintable(c) && c != '\n';
}

// Blocks without a branch inside, which the compiler turns into vector instructions.
constexpr size_t kBlock = 64;
bool BlockHasOddByte(const char* block) {
    unsigned char odd = 0;
    for (size_t i = 0; i < kBlock; ++i) {
        const unsigned char c = static_cast<unsigned char>(block[i]);
        const unsigned char fromBlank = static_cast<unsigned char>(c - 0x20);
        odd |= static_cast<unsigned char>((fromBlank > 0x5E) & (c != '\n'));
    }
    return odd != 0;
}

}  // namespace

LogFileReader::LogFileReader(int fd)
    : m_Fd(fd), m_Buffer(kBufferSize + 1), m_Next(m_Buffer.data()), m_End(m_Next), m_Odd(m_End) {}

bool LogFileReader::Next(LogLine& line) {
    char* feed = nullptr;
    size_t length;
    for (;;) {
        const size_t available = static_cast<size_t>(m_End - m_Next);
        length = std::min(available, kMaxPiece);
        feed = static_cast<char*>(memchr(m_Next, '\n', length));
        if (feed != nullptr || length == kMaxPiece || !Fill()) break;
    }
    if (feed != nullptr) length = static_cast<size_t>(feed + 1 - m_Next);
    if (length == 0) return false;

    line.state = LogLine::Whole;
    line.text = m_Next;
    line.end = m_Next + length;
    line.scanEnd = feed != nullptr ? feed : line.end;
    if (m_Odd < m_Next) FindOddByte();
    if (m_Odd < line.scanEnd) {
        ScanBytes(line);
    } else {
        line.end = line.scanEnd;
    }
    FindCommas(line);
    m_Next += length;
    return true;
}

// The careful way, for a piece with a byte that may end its text early or that no log line holds.
void LogFileReader::ScanBytes(LogLine& line) {
    char* c = line.text;
    while (c < line.scanEnd && IsPrintable(*c))
        ++c;
    line.scanEnd = c;
    if (*c == '\0' || *c == '\r') {
        line.end = c;
        return;
    }
    // A corrupt text goes as far as its terminator, its line feed included. It is moved aside,
    // since the rest of the line may be passed over before it is judged.
    const size_t length = strnlen(line.text, static_cast<size_t>(line.end - line.text));
    m_Corrupt.assign(line.text, line.text + length);
    m_Corrupt.push_back('\0');
    line.state = LogLine::Corrupt;
    line.scanEnd = m_Corrupt.data() + (c - line.text);
    line.text = m_Corrupt.data();
    line.end = line.text + length;
}

void LogFileReader::FindCommas(LogLine& line) {
    const size_t length = static_cast<size_t>(line.scanEnd - line.text);
    line.last = static_cast<const char*>(memrchr(line.text, ',', length));
    line.third = nullptr;
    int commas = 0;
    for (const char* c = line.text; c < line.scanEnd; ++c) {
        if (*c == ',' && ++commas == 3) {
            line.third = c;
            return;
        }
    }
}

bool LogFileReader::SkipLine() {
    do {
        char* feed = static_cast<char*>(memchr(m_Next, '\n', static_cast<size_t>(m_End - m_Next)));
        if (feed != nullptr) {
            m_Next = feed + 1;
            return true;
        }
        m_Next = m_End;
    } while (Fill());
    return false;
}

// Moves what was not handed out to the front and reads more behind it. False at the end of the
// file.
bool LogFileReader::Fill() {
    if (m_AtEnd) return false;
    const size_t kept = static_cast<size_t>(m_End - m_Next);
    memmove(m_Buffer.data(), m_Next, kept);
    ssize_t got;
    do {
        got = read(m_Fd, m_Buffer.data() + kept, kBufferSize - kept);
    } while (got == -1 && errno == EINTR);
    m_Next = m_Buffer.data();
    m_End = m_Next + kept + (got > 0 ? got : 0);
    m_AtEnd = got <= 0;
    FindOddByte();
    return got > 0;
}

void LogFileReader::FindOddByte() {
    m_Odd = m_Next;
    while (m_End - m_Odd >= static_cast<ptrdiff_t>(kBlock) && !BlockHasOddByte(m_Odd)) {
        m_Odd += kBlock;
    }
    m_Odd = std::find_if(m_Odd, m_End, IsOdd);
}

}  // namespace OSTREL
