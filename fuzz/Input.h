#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace Fuzz {

// Takes pieces off the front of a fuzzer's input. Behind the end everything reads as zero or empty.
class Input {
public:
    Input(const uint8_t* data, size_t size) : m_Data(data), m_Left(size) {}

    bool IsEmpty() const { return m_Left == 0; }

    template <class Integer>
    Integer Take() {
        Integer value = 0;
        const size_t length = std::min(m_Left, sizeof value);
        memcpy(&value, m_Data, length);
        Skip(length);
        return value;
    }

    std::string TakeBytes(size_t length) {
        length = std::min(length, m_Left);
        std::string bytes(reinterpret_cast<const char*>(m_Data), length);
        Skip(length);
        return bytes;
    }
    std::string TakeRest() { return TakeBytes(m_Left); }

private:
    void Skip(size_t length) {
        m_Data += length;
        m_Left -= length;
    }

    const uint8_t* m_Data;
    size_t m_Left;
};

// Ends the program with a finding.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    fprintf(stderr, "violated: %s\n", what);
    abort();
}

}  // namespace Fuzz
