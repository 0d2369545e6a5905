// Bytes as what clients send to the service's control socket, in pieces: each client gets at most
// one request taken, which is its first line, and an answer that it reads whole.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ControlServer.h"
#include "ControlSocket.h"
#include "Input.h"

namespace {

using Fuzz::Require;

constexpr size_t kClients = 3;
constexpr size_t kMaxLine = 256;

struct Client {
    int fd = -1;
    std::string sent;
    bool taken = false;
};

class Session {
public:
    Session() {
        static const std::string path = "/tmp/velm_fuzz_control." + std::to_string(getpid());
        Require(m_Server.Open(path).empty(), "a socket");
        sockaddr_un address{};
        Require(MakeControlAddress(path, address), "an address");
        for (Client& client : m_Clients) {
            client.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            Require(connect(client.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0,
                    "a connection");
            m_Server.Step();
        }
    }
    ~Session() {
        for (const Client& client : m_Clients)
            close(client.fd);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Send(size_t index, const std::string& piece) {
        Client& client = m_Clients[index % kClients];
        if (send(client.fd, piece.data(), piece.size(), MSG_NOSIGNAL) > 0) client.sent += piece;
        m_Server.Step();
        TakeAll();
    }

private:
    void TakeAll() {
        ControlServer::Request request;
        while (m_Server.Take(request)) {
            Require(request.id >= 1 && request.id <= kClients, "a known client");
            Client& client = m_Clients[request.id - 1];
            Require(!client.taken, "one request of each");
            client.taken = true;
            Require(request.line.size() <= kMaxLine, "a short line");
            Require(client.sent.substr(0, request.line.size() + 1) == request.line + "\n",
                    "the first line");
            m_Server.Answer(request.id, request.line + "!\n");
            std::array<char, 2 * kMaxLine> answer;
            const ssize_t got = recv(client.fd, answer.data(), answer.size(), 0);
            Require(got == static_cast<ssize_t>(request.line.size() + 2), "the whole answer");
        }
    }

    ControlServer m_Server;
    std::array<Client, kClients> m_Clients;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Session session;
    while (size > 0) {
        const size_t length = std::min<size_t>(size - 1, size_t{data[0]} * 2);
        session.Send(data[0], std::string(reinterpret_cast<const char*>(data + 1), length));
        data += 1 + length;
        size -= 1 + length;
    }
    return 0;
}
