#include "Fragments.h"

#include <algorithm>
#include <cstring>

namespace Kdi {

namespace {

constexpr int64_t LIFETIME = 30000000;  // microseconds

DatagramKey KeyOf(const Packet& packet) {
    DatagramKey key;
    key.source = packet.source.value;
    key.destination = packet.destination.value;
    key.id = packet.frame.fragmentId;
    // IPv6 tells datagrams apart without the protocol, which a later fragment may not know.
    if (packet.frame.family == 4) key.protocol = packet.frame.protocol;
    key.family = packet.frame.family;
    return key;
}

}  // namespace

HeldFragment& HeldFragment::operator=(const Packet& packet) {
    m_Packet = packet;
    Frame& frame = m_Packet.frame;
    if (frame.family == 0) return *this;
    if (frame.ethernet) std::memcpy(m_Ethernet, frame.ethernet, sizeof m_Ethernet);
    std::memcpy(m_Ip, frame.ip, frame.family == 4 ? 20 : 40);
    frame.transportLen = std::min<uint32_t>(frame.transportLen, sizeof m_Transport);
    if (frame.transportLen) std::memcpy(m_Transport, frame.transport, frame.transportLen);
    frame.ethernet = frame.ethernet ? m_Ethernet : nullptr;
    frame.sourceHardware = frame.destinationHardware = nullptr;
    frame.ip = m_Ip;
    frame.transport = m_Transport;
    return *this;
}

bool HeldFragment::Append(const Frame& later) {
    Frame& frame = m_Packet.frame;
    if (later.fragmentOffset != frame.transportLen) return false;
    const uint32_t room = static_cast<uint32_t>(sizeof m_Transport) - frame.transportLen;
    const uint32_t length = std::min(later.laterLen, room);
    if (length) std::memcpy(m_Transport + frame.transportLen, later.laterBytes, length);
    frame.transportLen += length;
    return true;
}

Fragments::Datagram* Fragments::Find(const Packet& packet) {
    const uint64_t* number = m_Numbers.Find(KeyOf(packet));
    return number ? &At(*number) : nullptr;
}

void Fragments::Retire(Datagram& datagram) {
    if (datagram.state != State::Done) m_Numbers.Erase(datagram.key);
    datagram.state = State::Done;
}

void Fragments::DropDone() {
    while (m_First != m_End && At(m_First).state == State::Done)
        ++m_First;
}

Fragments::Datagram& Fragments::Take(const Packet& packet, int64_t clock,
                                     std::vector<HeldFragment>& givenUp) {
    if (m_Ring.empty()) m_Ring.resize(CAPACITY);
    const auto giveUp = [&](Datagram& datagram) {
        if (datagram.state == State::Held) givenUp.push_back(datagram.held);
        Retire(datagram);
    };
    if (Datagram* same = Find(packet)) giveUp(*same);
    if (m_End - m_First == CAPACITY) giveUp(At(m_First));
    DropDone();
    Datagram& datagram = At(m_End);
    datagram.key = KeyOf(packet);
    datagram.deadline = clock + LIFETIME;
    *m_Numbers.Insert(datagram.key).first = m_End++;
    return datagram;
}

void Fragments::Hold(const Packet& packet, int64_t clock, std::vector<HeldFragment>& givenUp) {
    Datagram& datagram = Take(packet, clock, givenUp);
    datagram.state = State::Held;
    datagram.held = packet;
}

void Fragments::Accept(const Packet& packet, int64_t clock, std::vector<HeldFragment>& givenUp) {
    Take(packet, clock, givenUp).state = State::Accepted;
}

bool Fragments::IsAccepted(const Packet& laterFragment) {
    const Datagram* datagram = Find(laterFragment);
    return datagram && datagram->state == State::Accepted;
}

HeldFragment* Fragments::FindHeld(const Packet& laterFragment) {
    Datagram* datagram = Find(laterFragment);
    return datagram && datagram->state == State::Held ? &datagram->held : nullptr;
}

void Fragments::Complete(const Packet& laterFragment, bool accepted) {
    Datagram& datagram = *Find(laterFragment);
    if (accepted) {
        datagram.state = State::Accepted;
    } else {
        Retire(datagram);
    }
}

HeldFragment* Fragments::Overdue(int64_t clock, int64_t& deadline) {
    for (DropDone(); m_First != m_End; DropDone()) {
        Datagram& oldest = At(m_First);
        if (oldest.deadline >= clock) return nullptr;
        deadline = oldest.deadline;
        if (oldest.state == State::Held) return &oldest.held;
        Retire(oldest);
    }
    return nullptr;
}

void Fragments::DropOldest() {
    Retire(At(m_First));
}

}  // namespace Kdi
