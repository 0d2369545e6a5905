#pragma once

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace OSTREL {

// Appends to a text in a caller's buffer. Never writes beyond the buffer, keeps the text
// terminated, and cuts silently what does not fit.
class TextCursor {
public:
    static constexpr char kHexDigits[] = "0123456789ABCDEF";

    // `size` is that of the whole buffer, at least 1. Begins an empty text.
    TextCursor(char* buffer, size_t size)
        : m_Begin(buffer), m_Position(buffer), m_Last(buffer + size - 1) {}
    TextCursor(const TextCursor&) = delete;
    TextCursor& operator=(const TextCursor&) = delete;

    void Put(char c) {
        if (m_Position == m_Last) return;
        *m_Position++ = c;
    }

    void Put(std::string_view text) {
        if (text.empty()) return;  // its data may be null
        const size_t length = text.size() < Room() ? text.size() : Room();
        memcpy(m_Position, text.data(), length);
        m_Position += length;
    }

    template <class Integer>
    void PutNumber(Integer value, int base = 10) {
        // Long enough for every 64-bit number in every base from 10 on.
        constexpr size_t kMaxDigits = 24;
        if (Room() >= kMaxDigits) {
            m_Position = std::to_chars(m_Position, m_Last, value, base).ptr;
        } else {
            char digits[kMaxDigits];
            const char* end = std::to_chars(digits, digits + kMaxDigits, value, base).ptr;
            Put(std::string_view(digits, static_cast<size_t>(end - digits)));
        }
    }

    // Two upper-case digits.
    void PutHexByte(unsigned char byte) {
        Put(kHexDigits[byte >> 4]);
        Put(kHexDigits[byte & 0x0F]);
    }

    // Appends what `write(char* out, size_t room)` writes, at most `most` bytes; it returns how
    // many.
    template <class Writer>
    void PutBy(Writer write, size_t most = static_cast<size_t>(-1)) {
        m_Position += write(m_Position, most < Room() ? most : Room());
    }

    // The text for others to read, or to append to; behind that, Resume goes on where they ended.
    char* Terminate() {
        *m_Position = '\0';
        return m_Begin;
    }
    void Resume() { m_Position += strlen(m_Position); }

    size_t Size() const { return static_cast<size_t>(m_Last - m_Begin) + 1; }
    size_t Length() const { return static_cast<size_t>(m_Position - m_Begin); }
    std::string_view Text() const { return std::string_view(m_Begin, Length()); }

private:
    size_t Room() const { return static_cast<size_t>(m_Last - m_Position); }

    char* m_Begin;
    char* m_Position;
    char* m_Last;  // the place of the terminator of a full text
};

}  // namespace OSTREL
