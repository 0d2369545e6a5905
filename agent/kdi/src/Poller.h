#pragma once

#include <array>
#include <cstdint>

namespace Kdi {

// Waits for several descriptors at once. Throws std::system_error.
class Poller {
public:
    // What was added and is readable, by number.
    class Ready {
    public:
        bool Has(uint32_t number) const { return m_Bits >> number & 1; }
        bool Any() const { return m_Bits != 0; }
        void Add(uint32_t number) { m_Bits |= 1u << number; }

    private:
        uint32_t m_Bits = 0;
    };

    Poller();
    ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    // Readable when one of those is.
    int Descriptor() const { return m_Descriptor; }
    // `number`: below 32.
    void Add(int descriptor, uint32_t number);
    // `timeoutMsec`: -1 waits for ever. False if a signal ended the waiting.
    bool Wait(int timeoutMsec, Ready& ready);

private:
    int m_Descriptor;
};

}  // namespace Kdi
