#include "FlowTable.h"

namespace Kdi {

namespace {

constexpr uint32_t NONE = UINT32_MAX;
constexpr int64_t USEC = 1000000;
// By FlowWait.
constexpr int64_t TIMEOUTS[FLOW_WAITS] = {30 * USEC, 120 * USEC, 3600 * USEC, 60 * USEC};

}  // namespace

Flow* FlowTable::Find(const FlowKey& key) {
    const uint32_t* index = m_Index.Find(key);
    return index ? &At(*index) : nullptr;
}

uint32_t FlowTable::TakeSlot() {
    if (!m_Free.empty()) {
        const uint32_t slot = m_Free.back();
        m_Free.pop_back();
        return slot;
    }
    if (m_Used % CHUNK == 0) m_Chunks.push_back(std::make_unique<Flow[]>(CHUNK));
    return m_Used++;
}

Flow& FlowTable::Begin(const Packet& packet, uint8_t direction) {
    const uint32_t slot = TakeSlot();
    *m_Index.Insert(packet.key).first = slot;
    Flow& flow = At(slot);
    flow.key = packet.key;
    CopyHeaders(packet.frame, direction, flow.first);
    flow.begun = packet.time;
    flow.number = packet.number;
    flow.self = slot;
    flow.wait = FlowWait::Answer;
    flow.swapped = packet.swapped;
    flow.answered = flow.confirmed = false;
    flow.finSides = 0;
    Append(flow);
    return flow;
}

void FlowTable::Unlink(Flow& flow) {
    Queue& queue = m_Queues[static_cast<size_t>(flow.wait)];
    (flow.previous == NONE ? queue.first : At(flow.previous).next) = flow.next;
    (flow.next == NONE ? queue.last : At(flow.next).previous) = flow.previous;
}

void FlowTable::Append(Flow& flow) {
    Queue& queue = m_Queues[static_cast<size_t>(flow.wait)];
    flow.previous = queue.last;
    flow.next = NONE;
    (queue.last == NONE ? queue.first : At(queue.last).next) = flow.self;
    queue.last = flow.self;
}

void FlowTable::Wait(Flow& flow, FlowWait wait, int64_t clock) {
    flow.deadline = clock + TIMEOUTS[static_cast<size_t>(wait)];
    if (flow.wait == wait && flow.next == NONE) return;
    Unlink(flow);
    flow.wait = wait;
    Append(flow);
}

void FlowTable::Remove(Flow& flow) {
    Unlink(flow);
    m_Index.Erase(flow.key);
    m_Free.push_back(flow.self);
}

Flow* FlowTable::First(FlowWait wait) {
    const uint32_t first = m_Queues[static_cast<size_t>(wait)].first;
    return first == NONE ? nullptr : &At(first);
}

}  // namespace Kdi
