#include "TcpDirection.h"

namespace Kdi {

namespace {

// A segment that is further ahead lies outside of any window that was announced.
constexpr uint32_t MAX_AHEAD = 1u << 20;

}  // namespace

void TcpDirection::Start(uint32_t sequence) {
    if (m_Started) return;
    m_Started = true;
    m_Tracker.sequence_number(sequence);
}

bool TcpDirection::Add(uint32_t sequence, const uint8_t* bytes, size_t length, const Sink& sink) {
    const uint32_t behind = Next() - sequence;
    if (behind != 0 && behind < UINT32_MAX / 2) {
        if (behind >= length) return true;  // all of it came before
        bytes += behind;
        length -= behind;
        sequence += behind;
    }
    if (length == 0 || sequence - Next() > MAX_AHEAD) return true;
    if (sequence != Next() || !m_Tracker.buffered_payload().empty())
        return Store(sequence, bytes, length, sink);
    m_Tracker.sequence_number(sequence + static_cast<uint32_t>(length));
    sink(bytes, length);
    return true;
}

bool TcpDirection::Store(uint32_t sequence, const uint8_t* bytes, size_t length, const Sink& sink) {
    if (length > MAX_BUFFERED - Buffered() || m_Tracker.buffered_payload().size() == MAX_SEGMENTS)
        return false;
    if (!m_Tracker.process_payload(sequence, {bytes, bytes + length})) return true;
    Tins::TCPIP::DataTracker::payload_type payload;
    payload.swap(m_Tracker.payload());
    sink(payload.data(), payload.size());
    return true;
}

}  // namespace Kdi
