#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

using namespace std::chrono_literals;

Progress::Progress() : m_IsTerminal(isatty(STDERR_FILENO) != 0), m_Next(Clock::now() + 2s) {}

bool Progress::IsTime() {
    const Clock::time_point now = Clock::now();
    if (now < m_Next) return false;
    m_Next = now + 200ms;
    return true;
}

void Progress::Draw(double share) {
    constexpr int width = 40;
    share = std::clamp(share, 0.0, 1.0);
    const int full = static_cast<int>(share * width);
    std::fprintf(stderr, "\r[%.*s%*s] %3d%%", full, "########################################",
                 width - full, "", static_cast<int>(share * 100));
    std::fflush(stderr);
    m_IsDrawn = true;
}

void Progress::Erase() {
    if (m_IsDrawn) std::fputs("\r\033[K", stderr);
    m_IsDrawn = false;
}
