#include "ReplayClock.h"

#include <algorithm>

#include "velm/Clock.h"

ReplayClock::ReplayClock() {
    VelmCore::SetTickCount(0);
}

void ReplayClock::BeginCapture(int64_t firstUsec) {
    if (!m_Started || firstUsec - m_OriginUsec < m_PositionUsec)
        m_OriginUsec = firstUsec - m_PositionUsec;
    m_Started = true;
    m_CaptureUsec = firstUsec;
    MoveTo(firstUsec);
}

void ReplayClock::MoveTo(int64_t usec) {
    m_CaptureUsec = std::max(m_CaptureUsec, usec);
    m_PositionUsec = std::max(m_PositionUsec, usec - m_OriginUsec);
    const int64_t msec = m_PositionUsec / 1000;
    if (msec == m_Msec) return;
    m_Msec = msec;
    VelmCore::SetTickCount(static_cast<unsigned int>(msec & 0xFFFFFFFF));
}
