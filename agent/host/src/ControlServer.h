#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <string>
#include <vector>

// The service's end of its control socket. A client sends one line, gets an answer of one or more
// lines, and the connection closes. The entry loop calls Step now and then; nothing here waits for
// a client: one that is slow, silent or talks too much is dropped.
class ControlServer {
public:
    struct Request {
        unsigned int id;
        std::string line;  // without its end
    };

    ControlServer() = default;
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // Makes the socket (mode 0600) in place of one that a former service left. Empty, or why not.
    std::string Open(const std::string& path);
    // Accepts, reads, writes and drops what can be done at once.
    void Step();
    // Appends what poll is to wait for until there is something for Step to do.
    void AppendDescriptors(std::vector<pollfd>& descriptors) const;
    // The oldest request that has no answer yet and was not taken.
    bool Take(Request& request);
    // Ends a request that was taken. One whose client has gone is passed over.
    void Answer(unsigned int id, std::string text);

private:
    using Clock = std::chrono::steady_clock;
    enum class State { Reading, Asking, Waiting, Writing, Done };

    struct Client {
        unsigned int id;
        int fd;
        Clock::time_point deadline;
        State state = State::Reading;
        std::string text;  // the request, then the answer
        size_t written = 0;
    };

    void Accept();
    void CloseDone();
    static void Read(Client& client);
    static void Write(Client& client);

    std::string m_Path;
    int m_Socket = -1;
    unsigned int m_NextId = 1;
    std::list<Client> m_Clients;  // in the order of their coming
};
