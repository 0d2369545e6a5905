#pragma once

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <random>
#include <string>

namespace Reference {

// Test inputs by seed: the same seed gives the same inputs on every host.
class Random {
public:
    explicit Random(uint64_t seed) : m_Engine(seed) {}

    uint64_t Bits() { return m_Engine(); }
    // A number from 0 to `bound` - 1.
    uint32_t Below(uint32_t bound) { return static_cast<uint32_t>(m_Engine() % bound); }
    long long Between(long long low, long long high) {
        return low + static_cast<long long>(m_Engine() % static_cast<uint64_t>(high - low + 1));
    }
    bool OneIn(uint32_t chances) { return Below(chances) == 0; }

    template <class T>
    T Pick(std::initializer_list<T> values) {
        return values.begin()[Below(static_cast<uint32_t>(values.size()))];
    }

    std::string Bytes(size_t length) {
        std::string bytes(length, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(m_Engine());
        return bytes;
    }

private:
    std::mt19937_64 m_Engine;
};

// The cases of one test: `count` seeds from `base` on, or the one that OSTREL_REFERENCE_SEED names.
struct Seeds {
    Seeds(uint64_t base, uint64_t count) : first(base), last(base + count) {
        const char* only = getenv("OSTREL_REFERENCE_SEED");
        if (only == nullptr) return;
        first = strtoull(only, nullptr, 10);
        last = first + 1;
    }

    uint64_t first;
    uint64_t last;  // behind the last one
};

}  // namespace Reference
