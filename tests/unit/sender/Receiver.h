#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Socket.h"
#include "SyslogTarget.h"

// Long enough for the slowest machine; only a failing test waits for it.
constexpr std::chrono::seconds kPatience(60);

inline bool WaitFor(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

inline bool WaitReadable(int descriptor, std::chrono::milliseconds time = kPatience) {
    pollfd watched = {descriptor, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(time.count())) > 0;
}

inline SyslogTarget TargetOf(const std::string& text) {
    SyslogTarget target;
    std::string reason;
    EXPECT_TRUE(ParseSyslogTarget(text, target, reason)) << reason;
    return target;
}

// A loopback port.
class Port {
public:
    explicit Port(int type, int family = AF_INET) : m_Socket(socket(family, type, 0)) {
        Bind(0, family);
    }

    int Get() const { return m_Socket.Get(); }
    void Close() { m_Socket.Close(); }
    int Number() const { return m_Number; }
    // The same port again, after Close.
    void Reopen(int type) {
        m_Socket = Socket(socket(AF_INET, type, 0));
        Bind(m_Number, AF_INET);
    }

private:
    void Bind(int number, int family) {
        const int on = 1;
        setsockopt(m_Socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_storage storage{};
        auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
        auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
        storage.ss_family = static_cast<sa_family_t>(family);
        if (family == AF_INET) v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (family == AF_INET6) v6->sin6_addr = in6addr_loopback;
        // Both have their port at the same place.
        v4->sin_port = htons(static_cast<uint16_t>(number));
        socklen_t size = family == AF_INET ? sizeof(*v4) : sizeof(*v6);
        auto* address = reinterpret_cast<sockaddr*>(&storage);
        m_Failed = bind(m_Socket.Get(), address, size) != 0;
        getsockname(m_Socket.Get(), address, &size);
        m_Number = ntohs(v4->sin_port);
    }

    Socket m_Socket;
    int m_Number = 0;
    bool m_Failed = false;
};

// Takes counted frames from a TCP connection apart. An odd length ends the test.
class FrameReader {
public:
    explicit FrameReader(Socket socket) : m_Socket(std::move(socket)) {}

    // The next `count` messages; fewer if the stream ends.
    std::vector<std::string> Read(size_t count) {
        std::vector<std::string> messages;
        std::string message;
        while (messages.size() < count && Next(message))
            messages.push_back(message);
        return messages;
    }
    // All until the stream ends.
    std::vector<std::string> ReadAll() { return Read(static_cast<size_t>(-1)); }
    Socket& Connection() { return m_Socket; }

private:
    bool Next(std::string& message) {
        size_t blank = std::string::npos;
        while ((blank = m_Bytes.find(' ')) == std::string::npos) {
            if (!Fill()) return false;
        }
        const std::string digits = m_Bytes.substr(0, blank);
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
            ADD_FAILURE() << "no length: " << digits;
            return false;
        }
        const size_t length = std::stoul(digits);
        while (m_Bytes.size() < blank + 1 + length) {
            if (!Fill()) return false;
        }
        message = m_Bytes.substr(blank + 1, length);
        m_Bytes.erase(0, blank + 1 + length);
        return true;
    }
    bool Fill() {
        char buffer[65536];
        if (!WaitReadable(m_Socket.Get())) return false;
        const ssize_t got = recv(m_Socket.Get(), buffer, sizeof(buffer), 0);
        if (got <= 0) return false;
        m_Bytes.append(buffer, static_cast<size_t>(got));
        return true;
    }

    Socket m_Socket;
    std::string m_Bytes;
};
