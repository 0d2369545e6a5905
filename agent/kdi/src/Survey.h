#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "CaptureOptions.h"
#include "LocalHost.h"
#include "Packet.h"

namespace Kdi {

// The first reading of a capture: finds out whose capture it is and which ports answer. Takes about
// 30 bytes for a flow and, where addresses are to be found, for an address of a station.
class Survey {
public:
    // `told`: the local networks, null if the capture is to tell them. Both outlive the survey.
    Survey(LinkType linkType, const NetworkList* told, AddressBook& book);

    void Add(const Frame& frame);
    // What was found; without the options, which the caller adds. Call it once, behind the last
    // frame.
    LocalHost Conclude();

private:
    // An interface on the link, by its hardware address.
    struct Station {
        HardwareAddress hardware;
        uint64_t frames = 0;       // from or to it alone
        uint64_t groupFrames = 0;  // from it to many
        uint64_t localFrames = 0;  // with a told address on its side
        uint64_t flowsTowards = 0;
        uint64_t firstFlow = UINT64_MAX;  // number of the first of them
    };
    struct Balance {
        uint32_t towards = 0;
        uint32_t begun = 0;
    };
    // What a packet has to say, without its bytes.
    struct Sighting {
        FlowKey key;
        Address source;
        Address destination;
        uint32_t sourceStation;
        uint32_t destinationStation;
        uint16_t openPort;  // of the source, should this be an answer
        LinkWay way;
        bool swapped;
        bool isOfFlow;
        bool mayAnswer;  // if it goes against its flow, the port is open
        bool isSynAck;
        bool isSourceNamed;  // by an address of its own
        bool isForOne;       // not for a group, by neither link nor IP
    };
    // Sightings wait in a ring while the memory that they will touch is fetched: where every packet
    // begins a flow, that is most of the time.
    static constexpr uint32_t WAITING = 16;

    uint32_t StationOf(const uint8_t* hardware);
    void CountFrame(const Frame& frame, Sighting& sighting);
    void Gather(const Frame& frame, Sighting& sighting);
    void Prefetch(const Sighting& sighting) const;
    void Settle(const Sighting& sighting);
    bool NoteFlow(const Sighting& sighting);
    void NoteTold(const Sighting& sighting);
    void NoteSides(const Sighting& sighting, bool beginsFlow);
    void NoteCooked(const Sighting& sighting, bool beginsFlow);
    void NoteBalance(const Sighting& sighting);
    bool IsTold(const Address& address) const;
    static bool ComesFirst(const Station& a, const Station& b);
    const Station* OwnStation() const;
    void AddSeen(uint32_t station, LocalHost& host) const;
    void AddBalanced(LocalHost& host) const;

    LinkType m_LinkType;
    const NetworkList* m_Told;
    AddressBook& m_Book;
    std::vector<Station> m_Stations;
    FlatMap<WordKey, uint32_t> m_StationNumbers;
    FlatMap<WordKey, Nothing> m_Seen;  // a station's number and an address of its side
    FlatMap<WordKey, Balance> m_Balances;
    FlatMap<FlowKey, bool> m_Flows;  // whether the first packet's source is the key's high end
    FlatMap<WordKey, Nothing> m_OpenPorts;
    std::array<Sighting, WAITING> m_Waiting;
    uint64_t m_Gathered = 0;
    uint64_t m_Settled = 0;
    bool m_SawOutgoing = false;  // by a cooked capture's own word
};

}  // namespace Kdi
