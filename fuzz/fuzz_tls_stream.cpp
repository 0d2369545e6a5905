// Bytes as what is seen of a TLS connection, in two forms: the two streams, fed whole and in
// pieces, which must come to the same; or TCP segments in any order and shape.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Input.h"
#include "TlsConnection.h"
#include "TlsStreams.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Fuzz::Input;
using Fuzz::Require;
using Kdi::TlsConnection;
using Kdi::TlsOutcome;

Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

void CheckSecret(const Kdi::TlsSecret& secret) {
    Require(secret.offeredVersion[0] == 3 && secret.version[0] == 3, "versions of TLS");
    Require(secret.encrypted.size() >= secret.PrefixLen() + 59, "a secret has its least size");
    Require(secret.encrypted.size() <= Kdi::TlsRecords::MAX_KEPT, "and its largest");
}

// Pieces of 1 to 256 bytes, their sizes from `sizes`.
void FeedPieces(const Bytes& bytes, Input& sizes,
                const std::function<void(const uint8_t*, size_t)>& feed) {
    for (size_t at = 0; at < bytes.size();) {
        const size_t size = std::min<size_t>(sizes.Take<uint8_t>() + 1u, bytes.size() - at);
        const Bytes copy(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                         bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
        feed(copy.data(), size);
        at += size;
    }
}

void CompareStreams(Input& input) {
    const Bytes client = ToBytes(input.TakeBytes(input.Take<uint16_t>()));
    const Bytes server = ToBytes(input.TakeBytes(input.Take<uint16_t>()));
    TlsConnection whole, pieces;
    whole.FeedServer(server.data(), server.size());
    whole.FeedClient(client.data(), client.size());
    FeedPieces(server, input, [&](auto... piece) { pieces.FeedServer(piece...); });
    FeedPieces(client, input, [&](auto... piece) { pieces.FeedClient(piece...); });
    Require(whole.Outcome() == pieces.Outcome(), "same outcome");
    Require(whole.Exchange() == pieces.Exchange(), "same key exchange");
    Require(whole.Renegotiations() == pieces.Renegotiations(), "same renegotiations");
    if (whole.Outcome() != TlsOutcome::RsaKeyExchange) return;
    const Kdi::TlsSecret one = whole.TakeSecret(), other = pieces.TakeSecret();
    CheckSecret(one);
    Require(one.encrypted == other.encrypted && one.clientRandom == other.clientRandom,
            "same secret");
}

constexpr uint8_t CLIENT[] = {198, 51, 100, 66}, SERVER[] = {198, 51, 100, 10};
constexpr size_t HEADERS = 40;

void Put(Bytes& bytes, size_t at, uint32_t value, int size) {
    for (int i = size - 1; i >= 0; --i, value >>= 8)
        bytes[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value);
}

// An IPv4 packet with a segment of one of eight connections.
Bytes TakePacket(Input& input) {
    const uint8_t kind = input.Take<uint8_t>();
    const uint8_t flags = input.Take<uint8_t>();
    const uint32_t sequence = input.Take<uint16_t>();
    const uint32_t acknowledged = input.Take<uint16_t>();
    const Bytes data = ToBytes(input.TakeBytes(input.Take<uint16_t>() % 2048));
    Bytes packet(HEADERS);
    packet.insert(packet.end(), data.begin(), data.end());
    const bool fromClient = (kind & 1) != 0;
    const uint32_t port = 40000u + (kind >> 1 & 7u);
    packet[0] = 0x45;
    Put(packet, 2, static_cast<uint32_t>(packet.size()), 2);
    packet[6] = kind >= 0xF0 ? 0x20 : 0;
    packet[9] = 6;
    std::copy_n(fromClient ? CLIENT : SERVER, 4, &packet[12]);
    std::copy_n(fromClient ? SERVER : CLIENT, 4, &packet[16]);
    Put(packet, 20, fromClient ? port : 443, 2);
    Put(packet, 22, fromClient ? 443 : port, 2);
    Put(packet, 24, sequence, 4);
    Put(packet, 28, acknowledged, 4);
    packet[32] = static_cast<uint8_t>((kind >> 4 & 7) == 7 ? kind : 0x50);
    packet[33] = flags;
    return packet;
}

uint64_t Outcomes(const Kdi::TlsCounts& counts) {
    uint64_t sum = counts.rsa + counts.resumed + counts.malformed + counts.incomplete;
    for (const uint64_t count : counts.other)
        sum += count;
    return sum;
}

void FollowSegments(Input& input) {
    uint64_t secrets = 0;
    Kdi::TlsStreams streams(
        [&](const Kdi::TlsSecret& secret, const Kdi::TlsStreamKey&, int32_t id) {
            CheckSecret(secret);
            Require(id == 7, "the server's host configuration");
            ++secrets;
        });
    streams.AddServer(Kdi::MakeEndpoint(4, SERVER, 443), 7);
    for (int64_t time = 0; !input.IsEmpty(); ++time) {
        const Bytes packet = TakePacket(input);
        const auto size = static_cast<uint32_t>(packet.size());
        streams.Process(Kdi::ParseFrame(Kdi::LinkType::RawIp, packet.data(), size, size), time);
    }
    streams.Finish();
    const Kdi::TlsCounts& counts = streams.Counts();
    Require(secrets == counts.rsa, "each secret is counted");
    Require(Outcomes(counts) >= counts.handshakes, "each handshake came to something");
    Require(Outcomes(counts) - counts.malformed <= counts.handshakes, "and to one thing only");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    if (input.Take<uint8_t>() % 2 == 0)
        CompareStreams(input);
    else
        FollowSegments(input);
    return 0;
}
