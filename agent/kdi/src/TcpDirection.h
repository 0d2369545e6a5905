#pragma once

#include <tins/tcp_ip/data_tracker.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace Kdi {

// Puts the segments of one direction of a TCP connection into their order.
class TcpDirection {
public:
    // Gets the bytes in their order; valid during the call.
    using Sink = std::function<void(const uint8_t* bytes, size_t length)>;

    // Beyond this the gap will hardly be filled any more.
    static constexpr uint32_t MAX_BUFFERED = 64u << 10;  // bytes
    static constexpr size_t MAX_SEGMENTS = 256;

    // `sequence`: of the first byte. Later calls do nothing.
    void Start(uint32_t sequence);
    bool IsStarted() const { return m_Started; }
    uint32_t Next() const { return m_Tracker.sequence_number(); }

    // A segment, in any order and any number of times. False if too much waits for a gap.
    bool Add(uint32_t sequence, const uint8_t* bytes, size_t length, const Sink& sink);
    // What waits for a gap, in bytes.
    uint32_t Buffered() const { return m_Tracker.total_buffered_bytes(); }
    // About what that takes of memory, in bytes.
    size_t Held() const {
        return Buffered() + m_Tracker.buffered_payload().size() * SEGMENT_OVERHEAD;
    }
    // Forgets what waits.
    void Clear() { m_Tracker = Tins::TCPIP::DataTracker(Next()); }

private:
    static constexpr size_t SEGMENT_OVERHEAD = 128;  // a node of a map, and two blocks of memory

    bool Store(uint32_t sequence, const uint8_t* bytes, size_t length, const Sink& sink);

    Tins::TCPIP::DataTracker m_Tracker;
    bool m_Started = false;
};

}  // namespace Kdi
