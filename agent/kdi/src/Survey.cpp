#include "Survey.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "kdi/log_entry.h"

namespace Kdi {

namespace {

// Stands for the host itself in a cooked capture, where the frame says which way it went.
constexpr uint32_t COOKED_SELF = 0;
constexpr uint32_t NO_STATION = UINT32_MAX;

// Errors and the link's own housekeeping answer or serve; they begin nothing. A later fragment does
// not show what it belongs to.
bool IsOfAFlow(const Frame& frame) {
    return !frame.IsLaterFragment() && !frame.IsIcmpError() && !frame.IsLinkHousekeeping();
}

bool IsSynAck(const Frame& frame) {
    if (frame.protocol != IP_PROTO_TCP || !frame.HasTransport()) return false;
    const uint8_t mask = TCP_FLAG_SYN | TCP_FLAG_ACK | TCP_FLAG_RST | TCP_FLAG_FIN;
    return (frame.TcpFlags() & mask) == (TCP_FLAG_SYN | TCP_FLAG_ACK);
}

WordKey SeenKey(uint32_t station, const Address& address) {
    return {address.value | uint64_t{address.family} << 32 | uint64_t{station} << 35};
}

}  // namespace

Survey::Survey(LinkType linkType, const NetworkList* told, AddressBook& book)
    : m_LinkType(linkType), m_Told(told), m_Book(book) {}

uint32_t Survey::StationOf(const uint8_t* hardware) {
    uint64_t word = 0;
    std::memcpy(&word, hardware, 6);
    const auto [number, isNew] = m_StationNumbers.Insert({word | uint64_t{1} << 63});
    if (isNew) {
        *number = static_cast<uint32_t>(m_Stations.size());
        Station station;
        std::memcpy(station.hardware.data(), hardware, station.hardware.size());
        m_Stations.push_back(station);
    }
    return *number;
}

// A frame to a group reaches every interface, so it tells none from the others: it is counted
// apart.
void Survey::CountFrame(const Frame& frame, Sighting& sighting) {
    sighting.sourceStation = sighting.destinationStation = NO_STATION;
    if (!frame.sourceHardware) return;
    const uint32_t source = sighting.sourceStation = StationOf(frame.sourceHardware);
    if (m_LinkType != LinkType::Ethernet) {
        if (frame.way == LinkWay::Outgoing) ++m_Stations[source].frames;
        return;
    }
    if (frame.linkGroup) {
        ++m_Stations[source].groupFrames;
        return;
    }
    const uint32_t destination = StationOf(frame.destinationHardware);
    sighting.destinationStation = destination;
    ++m_Stations[source].frames;
    if (destination != source) ++m_Stations[destination].frames;
}

void Survey::Gather(const Frame& frame, Sighting& sighting) {
    Packet packet;
    Identify(frame, m_Book, packet);
    sighting.key = packet.key;
    sighting.source = packet.source;
    sighting.destination = packet.destination;
    sighting.openPort = frame.IsIcmp() ? 0 : packet.sourcePort;
    sighting.way = frame.way;
    sighting.swapped = packet.swapped;
    sighting.isOfFlow = IsOfAFlow(frame);
    sighting.mayAnswer = frame.protocol == IP_PROTO_UDP || frame.IsEchoReply();
    sighting.isSynAck = IsSynAck(frame);
    sighting.isSourceNamed = !frame.HasUnspecifiedSource();
    sighting.isForOne = !frame.linkGroup && !frame.IsForIpGroup();
}

void Survey::Add(const Frame& frame) {
    Sighting& sighting = m_Waiting[m_Gathered % WAITING];
    CountFrame(frame, sighting);
    if (frame.family == 0) return;
    Gather(frame, sighting);
    Prefetch(sighting);
    if (++m_Gathered - m_Settled == WAITING) Settle(m_Waiting[m_Settled++ % WAITING]);
}

void Survey::Prefetch(const Sighting& sighting) const {
    m_Flows.Prefetch(sighting.key);
    if (m_LinkType == LinkType::Ethernet) {
        m_Seen.Prefetch(SeenKey(sighting.sourceStation, sighting.source));
    }
}

void Survey::Settle(const Sighting& sighting) {
    const bool beginsFlow = sighting.isOfFlow && NoteFlow(sighting);
    if (m_Told) {
        NoteTold(sighting);
    } else if (m_LinkType == LinkType::Ethernet) {
        NoteSides(sighting, beginsFlow);
    } else {
        NoteCooked(sighting, beginsFlow);
        if (beginsFlow) NoteBalance(sighting);
    }
}

bool Survey::NoteFlow(const Sighting& sighting) {
    const auto [swapped, isNew] = m_Flows.Insert(sighting.key);
    if (isNew) *swapped = sighting.swapped;
    const bool answers = *swapped != sighting.swapped;
    if (sighting.isSynAck || (answers && sighting.mayAnswer)) {
        m_OpenPorts.Insert(PortKey(sighting.key.protocol, sighting.source, sighting.openPort));
    }
    return isNew;
}

bool Survey::IsTold(const Address& address) const {
    if (address.family == 6) return m_Told->Contains(6, m_Book.Bytes(address).data());
    uint8_t bytes[4];
    std::memcpy(bytes, &address.value, sizeof bytes);
    return m_Told->Contains(4, bytes);
}

void Survey::NoteTold(const Sighting& sighting) {
    if (sighting.sourceStation != NO_STATION && IsTold(sighting.source)) {
        ++m_Stations[sighting.sourceStation].localFrames;
    }
    if (sighting.destinationStation != NO_STATION && IsTold(sighting.destination)) {
        ++m_Stations[sighting.destinationStation].localFrames;
    }
}

void Survey::NoteSides(const Sighting& sighting, bool beginsFlow) {
    if (sighting.isSourceNamed) m_Seen.Insert(SeenKey(sighting.sourceStation, sighting.source));
    if (!beginsFlow || sighting.destinationStation == NO_STATION) return;
    Station& station = m_Stations[sighting.destinationStation];
    ++station.flowsTowards;
    station.firstFlow = std::min<uint64_t>(station.firstFlow, m_Flows.Size());
    if (sighting.isForOne) {
        m_Seen.Insert(SeenKey(sighting.destinationStation, sighting.destination));
    }
}

void Survey::NoteCooked(const Sighting& sighting, bool beginsFlow) {
    if (sighting.way == LinkWay::Outgoing) {
        m_SawOutgoing = true;
        if (sighting.isSourceNamed) m_Seen.Insert(SeenKey(COOKED_SELF, sighting.source));
    } else if (sighting.way == LinkWay::Incoming && beginsFlow && sighting.isForOne) {
        m_Seen.Insert(SeenKey(COOKED_SELF, sighting.destination));
    }
}

void Survey::NoteBalance(const Sighting& sighting) {
    if (sighting.isSourceNamed) ++m_Balances.Insert(AddressKey(sighting.source)).first->begun;
    if (sighting.isForOne) ++m_Balances.Insert(AddressKey(sighting.destination)).first->towards;
}

bool Survey::ComesFirst(const Station& a, const Station& b) {
    return std::make_tuple(a.localFrames, a.frames, a.flowsTowards, ~a.firstFlow, a.groupFrames) >
           std::make_tuple(b.localFrames, b.frames, b.flowsTowards, ~b.firstFlow, b.groupFrames);
}

// The first seen of equals. With told addresses, a station counts only if they are on its side.
const Survey::Station* Survey::OwnStation() const {
    const auto own = std::min_element(m_Stations.begin(), m_Stations.end(), ComesFirst);
    if (own == m_Stations.end()) return nullptr;
    const bool cooked = m_LinkType != LinkType::Ethernet;
    if (m_Told) return own->localFrames ? &*own : nullptr;
    return cooked && own->frames == 0 ? nullptr : &*own;
}

void Survey::AddSeen(uint32_t station, LocalHost& host) const {
    m_Seen.ForEach([&](const WordKey& key, Nothing) {
        if (key.word >> 35 != station) return;
        host.Add({static_cast<uint32_t>(key.word), static_cast<uint8_t>(key.word >> 32 & 7)});
    });
}

void Survey::AddBalanced(LocalHost& host) const {
    m_Balances.ForEach([&](const WordKey& key, const Balance& balance) {
        if (balance.towards <= balance.begun) return;
        host.Add({static_cast<uint32_t>(key.word), static_cast<uint8_t>(key.word >> 32)});
    });
}

LocalHost Survey::Conclude() {
    while (m_Settled != m_Gathered)
        Settle(m_Waiting[m_Settled++ % WAITING]);
    LocalHost host(m_Book);
    const Station* own = OwnStation();
    if (own) host.SetInterface(own->hardware);
    host.SetOpenPorts(m_OpenPorts);
    if (m_Told) return host;
    if (m_LinkType == LinkType::Ethernet) {
        if (own) AddSeen(static_cast<uint32_t>(own - m_Stations.data()), host);
    } else if (m_SawOutgoing) {
        AddSeen(COOKED_SELF, host);
    } else {
        AddBalanced(host);
    }
    return host;
}

}  // namespace Kdi
