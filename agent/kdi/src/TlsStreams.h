#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>

#include "FrameParser.h"
#include "TcpDirection.h"
#include "TlsConnection.h"

namespace Kdi {

// An address, IPv4 as its IPv6 form, and a port, in network byte order.
using Endpoint = std::array<uint8_t, 18>;

// From 4 or 16 bytes, by family.
Endpoint MakeEndpoint(uint8_t family, const uint8_t* address, uint16_t port);

struct TlsStreamKey {
    Endpoint client;
    Endpoint server;
    bool operator<(const TlsStreamKey& other) const {
        return client != other.client ? client < other.client : server < other.server;
    }
};

// What has come of the connections that were followed. Each handshake ends in one of the fields
// between `rsa` and `other`.
struct TlsCounts {
    uint64_t packets = 0;      // TCP segments of the servers
    uint64_t connections = 0;  // that sent anything to a server
    uint64_t handshakes = 0;   // that began with a ClientHello
    uint64_t rsa = 0;
    uint64_t resumed = 0;
    uint64_t malformed = 0;
    uint64_t incomplete = 0;  // ended, or went on too long, before the keys were agreed on
    std::array<uint64_t, KEY_EXCHANGE_COUNT> other = {};
    uint64_t notTls = 0;
    uint64_t renegotiations = 0;
    uint64_t gaps = 0;       // connections given up since segments are missing
    uint64_t evicted = 0;    // connections given up for lack of room
    uint64_t fragments = 0;  // IP fragments, which are not put together
};

// Follows the TCP connections to the servers that it was told of. Takes room for a bounded number
// of connections only: the ones that were silent for the longest give way.
class TlsStreams {
public:
    // A handshake whose encrypted secret is there.
    using Sink =
        std::function<void(TlsSecret secret, const TlsStreamKey& key, int32_t hostConfiguration)>;

    static constexpr size_t MAX_STREAMS = 8192;
    // Of connections on which nothing was sent yet: a flood of these pushes out no others.
    static constexpr size_t MAX_EMBRYOS = 4096;
    // Of memory for what waits for gaps, all connections together.
    static constexpr size_t MAX_HELD = 32u << 20;  // bytes
    static constexpr int64_t MAX_IDLE_USEC = 300'000'000;

    explicit TlsStreams(Sink sink) : m_Sink(std::move(sink)) {}

    void AddServer(const Endpoint& server, int32_t hostConfiguration);
    // `time`: of the packet, microseconds since the epoch.
    void Process(const Frame& frame, int64_t time);
    // The end of the capture: what is still open ends here.
    void Finish();

    const TlsCounts& Counts() const { return m_Counts; }

private:
    struct Stream {
        TlsStreamKey key;
        int32_t hostConfiguration = 0;
        uint32_t firstSequence = 0;  // of the client's data
        TcpDirection client;
        TcpDirection server;
        TlsConnection tls;
        bool hasData = false;  // of either side
        int64_t lastSeen = 0;
        // What was counted already.
        bool toldConnection = false;
        bool toldHello = false;
        TlsOutcome told = TlsOutcome::None;
        uint64_t toldRenegotiations = 0;

        size_t Held() const { return client.Held() + server.Held(); }
    };
    using List = std::list<Stream>;
    using Place = List::iterator;
    struct Segment;

    static bool ReadSegment(const Frame& frame, Segment& segment);
    void ProcessClient(const Segment& segment, int32_t hostConfiguration);
    void ProcessServer(const Segment& segment, Place stream);
    Place Begin(const Segment& segment, int32_t hostConfiguration);
    bool Feed(Stream& stream, const Segment& segment, bool fromClient);
    void Follow(Place stream, const Segment& segment, bool fromClient);
    void Touch(Place stream, bool hasData, bool fromClient);
    void Tell(Stream& stream);
    void TellOutcome(Stream& stream);
    void End(Place stream);
    void EndIdle(List& list);
    void MakeRoom();
    List& ListOf(const Stream& stream) { return stream.hasData ? m_Streams : m_Embryos; }

    const Sink m_Sink;
    std::map<Endpoint, int32_t> m_Servers;
    std::map<TlsStreamKey, Place> m_Index;
    List m_Embryos;  // both with the one that was silent for the longest first
    List m_Streams;
    size_t m_Held = 0;  // bytes
    int64_t m_Now = 0;  // the latest packet's time
    TlsCounts m_Counts;
};

}  // namespace Kdi
