#include "FlowBin.h"

#include <algorithm>
#include <functional>

namespace OSTREL {

namespace {

constexpr size_t kMinCompact = 4096;
constexpr size_t kMaxKept = 65536;

}  // namespace

uint64_t FlowBin::SourceKey(uint32_t source, uint8_t protocol) {
    return uint64_t{source} << 8 | protocol;
}

FlowSets FlowBin::Source::Touched() const {
    return {{destinations.begin(), destinations.end()}, {ports.begin(), ports.end()}};
}

void FlowBin::Add(uint32_t source, uint8_t protocol, uint32_t destination, uint16_t port) {
    if (m_Flows.size() >= m_CompactAt) {
        Compact();
        m_CompactAt = std::max(kMinCompact, 2 * m_Flows.size());
    }
    m_Flows.emplace_back(SourceKey(source, protocol), uint64_t{destination} << 16 | port);
}

void FlowBin::Compact() {
    if (m_Sorted == m_Flows.size()) return;
    const auto middle = m_Flows.begin() + static_cast<ptrdiff_t>(m_Sorted);
    std::sort(middle, m_Flows.end(), std::greater<Flow>());
    std::inplace_merge(m_Flows.begin(), middle, m_Flows.end(), std::greater<Flow>());
    m_Flows.erase(std::unique(m_Flows.begin(), m_Flows.end()), m_Flows.end());
    m_Sorted = m_Flows.size();
}

size_t FlowBin::CountSources() {
    Compact();
    size_t count = 0;
    for (size_t i = 0; i < m_Flows.size(); ++i) {
        if (i == 0 || m_Flows[i].first != m_Flows[i - 1].first) ++count;
    }
    return count;
}

FlowBin::Source FlowBin::First() {
    Compact();
    const uint64_t key = m_Flows.back().first;
    Source source = {static_cast<uint32_t>(key >> 8), static_cast<uint8_t>(key), {}, {}};
    for (auto flow = m_Flows.rbegin(); flow != m_Flows.rend() && flow->first == key; ++flow) {
        const uint32_t destination = DestinationOf(*flow);
        if (source.destinations.empty() || source.destinations.back() != destination) {
            source.destinations.push_back(destination);
        }
        source.ports.push_back(PortOf(*flow));
    }
    if (source.destinations.size() > 1) {
        std::sort(source.ports.begin(), source.ports.end());
        source.ports.erase(std::unique(source.ports.begin(), source.ports.end()),
                           source.ports.end());
    }
    return source;
}

void FlowBin::EraseFirst() {
    const uint64_t key = m_Flows.back().first;
    while (!m_Flows.empty() && m_Flows.back().first == key)
        m_Flows.pop_back();
    m_Sorted = m_Flows.size();
    if (!m_Flows.empty()) return;
    m_CompactAt = 0;
    // A flood's memory is given back.
    if (m_Flows.capacity() > kMaxKept) m_Flows = std::vector<Flow>();
}

FlowSets FlowBin::TouchedBy(uint32_t source, uint8_t protocol) const {
    const uint64_t key = SourceKey(source, protocol);
    FlowSets sets;
    for (const Flow& flow : m_Flows) {
        if (flow.first != key) continue;
        sets.first.insert(DestinationOf(flow));
        sets.second.insert(PortOf(flow));
    }
    return sets;
}

}  // namespace OSTREL
