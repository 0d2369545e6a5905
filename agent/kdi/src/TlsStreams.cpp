#include "TlsStreams.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "Bytes.h"
#include "kdi/log_entry.h"

namespace Kdi {

namespace {

constexpr size_t TCP_HEADER_LEN = 20;

Endpoint SourceOf(const Frame& frame) {
    return MakeEndpoint(frame.family, frame.ip + (frame.family == 4 ? 12 : 8), frame.SourcePort());
}

Endpoint DestinationOf(const Frame& frame) {
    return MakeEndpoint(frame.family, frame.ip + (frame.family == 4 ? 16 : 24),
                        frame.DestinationPort());
}

}  // namespace

Endpoint MakeEndpoint(uint8_t family, const uint8_t* address, uint16_t port) {
    Endpoint endpoint = {};
    if (family == 4) {
        endpoint[10] = endpoint[11] = 0xFF;
        std::memcpy(&endpoint[12], address, 4);
    } else {
        std::memcpy(endpoint.data(), address, 16);
    }
    endpoint[16] = static_cast<uint8_t>(port >> 8);
    endpoint[17] = static_cast<uint8_t>(port);
    return endpoint;
}

struct TlsStreams::Segment {
    TlsStreamKey key;
    uint32_t sequence;
    uint32_t acknowledged;
    uint8_t flags;
    const uint8_t* bytes;
    size_t length;

    bool Has(uint8_t flag) const { return (flags & flag) != 0; }
    // A connection whose beginning was not seen can be followed from here: a record that holds a
    // ClientHello and nothing else.
    bool LooksLikeHello() const {
        return length > 9 && bytes[0] == 22 && bytes[1] == 3 && bytes[5] == TLS_CLIENT_HELLO &&
               bytes[6] == 0 && BigEndian16(bytes + 3) == BigEndian16(bytes + 7) + 4;
    }
    bool Begins() const { return Has(TCP_FLAG_SYN) && !Has(TCP_FLAG_ACK); }
    uint32_t DataSequence() const { return sequence + (Has(TCP_FLAG_SYN) ? 1 : 0); }
};

void TlsStreams::AddServer(const Endpoint& server, int32_t hostConfiguration) {
    m_Servers[server] = hostConfiguration;
}

// Sets all but the key.
bool TlsStreams::ReadSegment(const Frame& frame, Segment& segment) {
    const uint8_t* tcp = frame.transport;
    const size_t headerLen = (tcp[12] >> 4) * size_t{4};
    if (headerLen < TCP_HEADER_LEN || headerLen > frame.transportLen) return false;
    segment.sequence = BigEndian32(tcp + 4);
    segment.acknowledged = BigEndian32(tcp + 8);
    segment.flags = frame.TcpFlags();
    segment.bytes = tcp + headerLen;
    segment.length = frame.transportLen - headerLen;
    return true;
}

void TlsStreams::Process(const Frame& frame, int64_t time) {
    m_Now = std::max(m_Now, time);
    if (frame.family == 0 || frame.protocol != IP_PROTO_TCP) return;
    if (frame.fragment) {
        ++m_Counts.fragments;
        return;
    }
    Segment segment;
    if (frame.transportLen < TCP_HEADER_LEN || !ReadSegment(frame, segment)) return;
    const Endpoint source = SourceOf(frame), destination = DestinationOf(frame);
    const auto toServer = m_Servers.find(destination);
    const bool fromServer = m_Servers.count(source) != 0;
    if (toServer == m_Servers.end() && !fromServer) return;
    ++m_Counts.packets;
    EndIdle(m_Embryos);
    EndIdle(m_Streams);
    // Where both are servers, the connection that is known tells which one is meant.
    const auto answered = fromServer ? m_Index.find({destination, source}) : m_Index.end();
    segment.key = {source, destination};
    if (answered != m_Index.end() && m_Index.count(segment.key) == 0)
        ProcessServer(segment, answered->second);
    else if (toServer != m_Servers.end())
        ProcessClient(segment, toServer->second);
    MakeRoom();
}

void TlsStreams::ProcessClient(const Segment& segment, int32_t hostConfiguration) {
    auto known = m_Index.find(segment.key);
    // A SYN that does not repeat the connection's own begins another one with the same ports.
    if (known != m_Index.end() && segment.Begins() &&
        segment.DataSequence() != known->second->firstSequence) {
        End(known->second);
        known = m_Index.end();
    }
    if (known == m_Index.end() && !segment.Begins() && !segment.LooksLikeHello()) return;
    const Place stream = known == m_Index.end() ? Begin(segment, hostConfiguration) : known->second;
    if (segment.Has(TCP_FLAG_ACK)) stream->server.Start(segment.acknowledged);
    Follow(stream, segment, true);
}

void TlsStreams::ProcessServer(const Segment& segment, Place stream) {
    if (segment.Has(TCP_FLAG_SYN)) stream->server.Start(segment.DataSequence());
    if (stream->server.IsStarted()) Follow(stream, segment, false);
}

TlsStreams::Place TlsStreams::Begin(const Segment& segment, int32_t hostConfiguration) {
    const Place stream = m_Embryos.emplace(m_Embryos.end());
    stream->key = segment.key;
    stream->hostConfiguration = hostConfiguration;
    stream->firstSequence = segment.DataSequence();
    stream->client.Start(stream->firstSequence);
    m_Index.emplace(segment.key, stream);
    return stream;
}

// False if segments are missing for good.
bool TlsStreams::Feed(Stream& stream, const Segment& segment, bool fromClient) {
    TlsConnection& tls = stream.tls;
    TcpDirection& direction = fromClient ? stream.client : stream.server;
    if (fromClient ? tls.IsClientDone() : tls.IsServerDone()) {
        if (direction.Buffered() != 0) direction.Clear();
        return true;
    }
    return direction.Add(segment.DataSequence(), segment.bytes, segment.length,
                         [&tls, fromClient](const uint8_t* bytes, size_t length) {
                             fromClient ? tls.FeedClient(bytes, length)
                                        : tls.FeedServer(bytes, length);
                         });
}

void TlsStreams::Follow(Place stream, const Segment& segment, bool fromClient) {
    Touch(stream, segment.length != 0, fromClient);
    const size_t before = stream->Held();
    const bool sound = Feed(*stream, segment, fromClient);
    m_Held = m_Held - before + stream->Held();
    Tell(*stream);
    if (sound) return;
    ++m_Counts.gaps;
    End(stream);
}

// What the server sends can take room as well, so that a connection with nothing else must give way
// like the others.
void TlsStreams::Touch(Place stream, bool hasData, bool fromClient) {
    List& from = ListOf(*stream);
    stream->hasData |= hasData;
    if (hasData && fromClient && !stream->toldConnection) {
        stream->toldConnection = true;
        ++m_Counts.connections;
    }
    List& to = ListOf(*stream);
    stream->lastSeen = m_Now;
    to.splice(to.end(), from, stream);
}

void TlsStreams::Tell(Stream& stream) {
    const TlsConnection& tls = stream.tls;
    if (tls.HasClientHello() && !stream.toldHello) {
        stream.toldHello = true;
        ++m_Counts.handshakes;
    }
    m_Counts.renegotiations += tls.Renegotiations() - stream.toldRenegotiations;
    stream.toldRenegotiations = tls.Renegotiations();
    if (tls.Outcome() == stream.told) return;
    stream.told = tls.Outcome();
    TellOutcome(stream);
}

void TlsStreams::TellOutcome(Stream& stream) {
    switch (stream.told) {
        case TlsOutcome::None:
            break;
        case TlsOutcome::RsaKeyExchange:
            ++m_Counts.rsa;
            m_Sink(stream.tls.TakeSecret(), stream.key, stream.hostConfiguration);
            break;
        case TlsOutcome::OtherKeyExchange:
            ++m_Counts.other[static_cast<size_t>(stream.tls.Exchange())];
            break;
        case TlsOutcome::Resumed:
            ++m_Counts.resumed;
            break;
        case TlsOutcome::Malformed:
            ++m_Counts.malformed;
            break;
        case TlsOutcome::NotTls:
            ++m_Counts.notTls;
            break;
    }
}

void TlsStreams::End(Place stream) {
    if (stream->toldHello && stream->told == TlsOutcome::None) ++m_Counts.incomplete;
    m_Held -= stream->Held();
    m_Index.erase(stream->key);
    ListOf(*stream).erase(stream);
}

void TlsStreams::EndIdle(List& list) {
    while (!list.empty() && m_Now - list.front().lastSeen > MAX_IDLE_USEC)
        End(list.begin());
}

void TlsStreams::MakeRoom() {
    while (m_Embryos.size() > MAX_EMBRYOS)
        End(m_Embryos.begin());
    while (m_Streams.size() > MAX_STREAMS || (m_Held > MAX_HELD && !m_Streams.empty())) {
        ++m_Counts.evicted;
        End(m_Streams.begin());
    }
}

void TlsStreams::Finish() {
    for (List* list : {&m_Embryos, &m_Streams}) {
        while (!list->empty())
            End(list->begin());
    }
}

}  // namespace Kdi
