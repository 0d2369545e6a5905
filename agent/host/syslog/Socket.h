#pragma once

#include <unistd.h>

#include <utility>

// A file descriptor that closes itself; -1 for none.
class Socket {
public:
    explicit Socket(int descriptor = -1) : m_Descriptor(descriptor) {}
    ~Socket() { Close(); }
    Socket(Socket&& other) noexcept : m_Descriptor(std::exchange(other.m_Descriptor, -1)) {}
    Socket& operator=(Socket&& other) noexcept {
        if (this != &other) {
            Close();
            m_Descriptor = std::exchange(other.m_Descriptor, -1);
        }
        return *this;
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int Get() const { return m_Descriptor; }
    bool IsOpen() const { return m_Descriptor >= 0; }
    void Close() {
        if (m_Descriptor >= 0) close(m_Descriptor);
        m_Descriptor = -1;
    }

private:
    int m_Descriptor;
};
