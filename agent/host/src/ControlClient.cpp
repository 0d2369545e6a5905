#include "ControlClient.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ControlSocket.h"

namespace {

constexpr time_t kPatienceSeconds = 10;
constexpr size_t kMaxAnswer = size_t{64} << 20;

class Connection {
public:
    Connection() : m_Fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const timeval patience{kPatienceSeconds, 0};
        setsockopt(m_Fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        setsockopt(m_Fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    }
    ~Connection() {
        if (m_Fd >= 0) close(m_Fd);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool Connect(const sockaddr_un& address) const {
        return connect(m_Fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }
    // A request is shorter than any socket buffer, so it goes in one piece.
    bool Send(const std::string& line) const {
        return send(m_Fd, line.data(), line.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(line.size());
    }
    bool Receive(std::string& answer) const {
        char block[65536];
        ssize_t got = 0;
        while ((got = recv(m_Fd, block, sizeof(block), 0)) > 0) {
            answer.append(block, static_cast<size_t>(got));
            if (answer.size() > kMaxAnswer) {
                errno = EMSGSIZE;
                return false;
            }
        }
        return got == 0;
    }

private:
    int m_Fd;
};

std::string ErrorText() {
    if (errno == EAGAIN || errno == EWOULDBLOCK) return "the service does not answer";
    return std::strerror(errno);
}

}  // namespace

bool AskService(const std::string& path, const std::string& line, std::string& answer,
                std::string& reason) {
    sockaddr_un address{};
    if (!MakeControlAddress(path, address)) {
        reason = kControlPathTooLong;
        return false;
    }
    const Connection connection;
    if (!connection.Connect(address)) {
        reason = errno == ENOENT || errno == ECONNREFUSED ? "no service is running" : ErrorText();
        return false;
    }
    answer.clear();
    if (!connection.Send(line + "\n") || !connection.Receive(answer)) {
        reason = ErrorText();
        return false;
    }
    if (!answer.empty() && answer.back() == '\n') return true;
    reason = "the service broke off its answer";
    return false;
}
