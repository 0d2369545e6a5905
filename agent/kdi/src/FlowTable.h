#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "Packet.h"
#include "Record.h"

namespace Kdi {

// What a connection waits for. Each kind has one time-out, so that a queue for each kind is in the
// order of its deadlines.
enum class FlowWait : uint8_t {
    Answer,  // the other side has not answered, or a handshake is not finished
    Datagrams,
    Segments,
    Oblivion,  // it has ended, and its stragglers still belong to it
};
constexpr size_t FLOW_WAITS = 4;

// A connection. About 170 bytes, and 24 to 48 in the table.
struct Flow {
    FlowKey key;
    EntryHeaders first;  // of the packet that began it
    int64_t begun;       // time of that packet
    uint64_t number;     // of that packet
    int64_t deadline;    // capture time after which it is over
    uint32_t self;
    uint32_t previous;
    uint32_t next;
    FlowWait wait;
    bool swapped;      // the side that began it is the key's high end
    bool answered;     // a packet came from the other side
    bool confirmed;    // TCP: the side that began it sent more than its SYN
    uint8_t finSides;  // bit 0: the side that began it, bit 1: the other
};

class FlowTable {
public:
    // Null if there is none. A reference to a flow is valid until the flow is removed.
    Flow* Find(const FlowKey& key);
    // A new connection that waits for nothing yet; its key must not be there.
    Flow& Begin(const Packet& packet, uint8_t direction);
    // Moves the connection to the end of the queue of `wait`. `clock` never goes back.
    void Wait(Flow& flow, FlowWait wait, int64_t clock);
    void Remove(Flow& flow);
    // The next one whose time of waiting is over; null if there is none.
    Flow* First(FlowWait wait);

private:
    struct Queue {
        uint32_t first = UINT32_MAX;
        uint32_t last = UINT32_MAX;
    };
    static constexpr uint32_t CHUNK = 1024;

    Flow& At(uint32_t index) { return m_Chunks[index / CHUNK][index % CHUNK]; }
    uint32_t TakeSlot();
    void Unlink(Flow& flow);
    void Append(Flow& flow);

    FlatMap<FlowKey, uint32_t> m_Index;
    std::vector<std::unique_ptr<Flow[]>> m_Chunks;
    std::vector<uint32_t> m_Free;
    uint32_t m_Used = 0;
    std::array<Queue, FLOW_WAITS> m_Queues;
};

}  // namespace Kdi
