#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace OSTREL {

// The distinct destination addresses (network byte order) and ports that a source has touched.
typedef std::pair<std::set<uint32_t>, std::set<uint16_t>> FlowSets;

// The flows of one time bin, by source and protocol. The caller locks.
//
// A flow is two words in a vector, and repeats go when the vector has doubled: so a flow costs a
// fraction of two insertions into sets, a flood of one source on one port no memory, and a source
// that touches one port of one address 16 bytes.
class FlowBin {
public:
    struct Source {
        uint32_t address;  // network byte order
        uint8_t protocol;
        std::vector<uint32_t> destinations;  // distinct, network byte order
        std::vector<uint16_t> ports;         // distinct

        FlowSets Touched() const;
    };

    // Addresses in network byte order, the port in host byte order.
    void Add(uint32_t source, uint8_t protocol, uint32_t destination, uint16_t port);
    bool IsEmpty() const { return m_Flows.empty(); }
    size_t CountSources();

    // The source that comes first by address, as a number in the byte order it has, and protocol.
    // Not for an empty bin.
    Source First();
    // Drops the source that First gave last.
    void EraseFirst();
    // What a source has touched so far, for traces.
    FlowSets TouchedBy(uint32_t source, uint8_t protocol) const;

private:
    // Source and protocol, destination and port. Sorted from the last to the first, so that the
    // first is taken off the end.
    typedef std::pair<uint64_t, uint64_t> Flow;

    static uint64_t SourceKey(uint32_t source, uint8_t protocol);
    static uint32_t DestinationOf(const Flow& flow) {
        return static_cast<uint32_t>(flow.second >> 16);
    }
    static uint16_t PortOf(const Flow& flow) { return static_cast<uint16_t>(flow.second); }
    void Compact();

    std::vector<Flow> m_Flows;
    size_t m_Sorted = 0;     // flows from the beginning that are sorted and distinct
    size_t m_CompactAt = 0;  // size at which repeats are dropped
};

}  // namespace OSTREL
