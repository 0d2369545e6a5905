#pragma once

#include <cstdint>
#include <vector>

#include "Packet.h"

namespace Kdi {

// A first fragment with copies of the bytes that its frame refers to.
class HeldFragment {
public:
    HeldFragment() = default;
    explicit HeldFragment(const Packet& packet) { *this = packet; }
    HeldFragment(const HeldFragment& other) { *this = other.m_Packet; }
    HeldFragment& operator=(const HeldFragment& other) {
        return this == &other ? *this : *this = other.m_Packet;
    }
    HeldFragment& operator=(const Packet& packet);

    // Puts the fragment's bytes behind those that are there, if they follow on.
    bool Append(const Frame& frame);
    const Packet& Whole() const { return m_Packet; }

private:
    Packet m_Packet;
    uint8_t m_Ethernet[12];
    uint8_t m_Ip[40];
    uint8_t m_Transport[20];
};

// The last 1024 datagrams whose first fragment matters to later ones, each for 30 seconds of
// capture time: those whose transport header is incomplete, and those that belong to a connection.
class Fragments {
public:
    // Keeps a first fragment until its header is complete. Others that are given up for it are
    // appended to `givenUp`.
    void Hold(const Packet& packet, int64_t clock, std::vector<HeldFragment>& givenUp);
    // The datagram belongs to a connection.
    void Accept(const Packet& packet, int64_t clock, std::vector<HeldFragment>& givenUp);

    bool IsAccepted(const Packet& laterFragment);
    // The first fragment that waits for this one; null if there is none.
    HeldFragment* FindHeld(const Packet& laterFragment);
    // Ends the waiting of a datagram that FindHeld found.
    void Complete(const Packet& laterFragment, bool accepted);

    // The oldest that is held, if its time was over before the clock; null if there is none.
    HeldFragment* Overdue(int64_t clock, int64_t& deadline);
    // Drops the one that Overdue found.
    void DropOldest();

private:
    enum class State : uint8_t { Done, Held, Accepted };
    struct Datagram {
        DatagramKey key;
        int64_t deadline = 0;
        State state = State::Done;
        HeldFragment held;
    };
    static constexpr uint32_t CAPACITY = 1024;

    Datagram& At(uint64_t number) { return m_Ring[number % CAPACITY]; }
    Datagram* Find(const Packet& packet);
    Datagram& Take(const Packet& packet, int64_t clock, std::vector<HeldFragment>& givenUp);
    void Retire(Datagram& datagram);
    void DropDone();

    std::vector<Datagram> m_Ring;  // made when the first fragment comes
    uint64_t m_First = 0;          // the oldest datagram's number
    uint64_t m_End = 0;
    FlatMap<DatagramKey, uint64_t> m_Numbers;
};

}  // namespace Kdi
