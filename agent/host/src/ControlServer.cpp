#include "ControlServer.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "ControlSocket.h"

namespace {

constexpr size_t kMaxClients = 16;  // further ones wait in the kernel's queue
constexpr int kBacklog = 16;
constexpr size_t kMaxLine = 256;
// From the beginning of the connection to the last byte of the answer.
constexpr std::chrono::seconds kPatience{5};

bool WouldWait() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

ControlServer::~ControlServer() {
    for (const Client& client : m_Clients)
        close(client.fd);
    if (m_Socket < 0) return;
    close(m_Socket);
    unlink(m_Path.c_str());
}

// The mask, and not a later chmod, keeps others out from the first moment on. It is the whole
// process's: a file that another thread makes at this moment is the owner's alone, too.
std::string ControlServer::Open(const std::string& path) {
    sockaddr_un address{};
    if (!MakeControlAddress(path, address)) return kControlPathTooLong;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return std::strerror(errno);
    unlink(path.c_str());
    const mode_t former = umask(0177);
    const bool bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    const int error = errno;
    umask(former);
    if (!bound || listen(fd, kBacklog) != 0) {
        close(fd);
        return std::strerror(bound ? errno : error);
    }
    m_Socket = fd;
    m_Path = path;
    return "";
}

void ControlServer::Step() {
    if (m_Socket < 0) return;
    Accept();
    for (Client& client : m_Clients) {
        if (client.state == State::Reading) Read(client);
        if (client.state == State::Writing) Write(client);
    }
    CloseDone();
}

void ControlServer::CloseDone() {
    const Clock::time_point now = Clock::now();
    for (auto client = m_Clients.begin(); client != m_Clients.end();) {
        if (client->state != State::Done && now < client->deadline) {
            ++client;
            continue;
        }
        close(client->fd);
        client = m_Clients.erase(client);
    }
}

void ControlServer::Accept() {
    while (m_Clients.size() < kMaxClients) {
        const int fd = accept4(m_Socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;
        Client client{};
        client.id = m_NextId++;
        client.fd = fd;
        client.deadline = Clock::now() + kPatience;
        m_Clients.push_back(std::move(client));
    }
}

// What follows the first line is not read: the answer is all that the client gets.
void ControlServer::Read(Client& client) {
    char block[kMaxLine];
    const ssize_t got = recv(client.fd, block, sizeof(block), 0);
    if (got < 0 && WouldWait()) return;
    if (got > 0) client.text.append(block, static_cast<size_t>(got));
    const size_t end = client.text.find('\n');
    if (end != std::string::npos && end <= kMaxLine) {
        client.text.resize(end);
        client.state = State::Asking;
    } else if (got <= 0 || client.text.size() > kMaxLine) {
        client.state = State::Done;
    }
}

void ControlServer::Write(Client& client) {
    const ssize_t sent = send(client.fd, client.text.data() + client.written,
                              client.text.size() - client.written, MSG_NOSIGNAL);
    if (sent < 0) {
        if (!WouldWait()) client.state = State::Done;
        return;
    }
    client.written += static_cast<size_t>(sent);
    if (client.written == client.text.size()) client.state = State::Done;
}

void ControlServer::AppendDescriptors(std::vector<pollfd>& descriptors) const {
    if (m_Socket >= 0 && m_Clients.size() < kMaxClients)
        descriptors.push_back({m_Socket, POLLIN, 0});
    for (const Client& client : m_Clients) {
        if (client.state == State::Reading) descriptors.push_back({client.fd, POLLIN, 0});
        if (client.state == State::Writing) descriptors.push_back({client.fd, POLLOUT, 0});
    }
}

bool ControlServer::Take(Request& request) {
    for (Client& client : m_Clients) {
        if (client.state != State::Asking) continue;
        client.state = State::Waiting;
        request = {client.id, std::move(client.text)};
        return true;
    }
    return false;
}

void ControlServer::Answer(unsigned int id, std::string text) {
    for (Client& client : m_Clients) {
        if (client.id != id || client.state != State::Waiting) continue;
        client.text = std::move(text);
        client.state = State::Writing;
        Write(client);
        break;
    }
    CloseDone();
}
