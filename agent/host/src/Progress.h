#pragma once

#include <chrono>

// A bar on standard error for work that takes over two seconds, if that is a terminal.
class Progress {
public:
    Progress();
    ~Progress() { Erase(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // True now and then, when the bar is due to be drawn anew. Cheap.
    bool IsDue() { return m_IsTerminal && (++m_Steps & 1023) == 0 && IsTime(); }
    // `share` of the work is done, 0 to 1.
    void Draw(double share);
    // Clears the line for other output.
    void Erase();

private:
    using Clock = std::chrono::steady_clock;

    bool IsTime();

    const bool m_IsTerminal;
    bool m_IsDrawn = false;
    unsigned int m_Steps = 0;
    Clock::time_point m_Next;
};
