#pragma once

#include <cstdint>

// The tick clock of a replay: milliseconds since the first packet of the first capture. It never
// goes back; a capture that begins earlier than the present position continues from it. While one
// exists, it is the process's tick clock.
class ReplayClock {
public:
    ReplayClock();

    // The next capture, by the time of its first packet in microseconds since the epoch.
    void BeginCapture(int64_t firstUsec);
    // Moves on to a packet's time.
    void MoveTo(int64_t usec);
    // Moves on without packets.
    void RunOn(int64_t usec) { MoveTo(m_CaptureUsec + usec); }

    // Time of the latest packet, microseconds since the epoch.
    int64_t CaptureUsec() const { return m_CaptureUsec; }

private:
    bool m_Started = false;
    int64_t m_OriginUsec = 0;  // capture time at position 0
    int64_t m_PositionUsec = 0;
    int64_t m_CaptureUsec = 0;
    int64_t m_Msec = 0;  // what the tick clock shows, before its wrap
};
