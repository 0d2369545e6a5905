#pragma once

namespace Kdi {

// Ends a poll from any thread or from a signal handler. Throws std::system_error if the kernel
// gives no descriptor.
class WakeUp {
public:
    WakeUp();
    ~WakeUp();
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    // Readable once Raise was called, until Take.
    int Descriptor() const { return m_Descriptor; }
    void Raise() const;
    bool Take() const;

private:
    int m_Descriptor;
};

}  // namespace Kdi
