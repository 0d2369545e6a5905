#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "TlsKeyExchange.h"
#include "TlsRecords.h"

namespace Kdi {

// An encrypted pre-master secret, with what is needed to use its answer.
struct TlsSecret {
    uint8_t offeredVersion[2];  // of the ClientHello, as on the wire
    uint8_t version[2];         // that the server chose
    std::array<uint8_t, 32> clientRandom;
    std::vector<uint8_t> encrypted;  // as on the wire: with its length, except in SSL 3.0
    // Where the encrypted bytes themselves begin.
    size_t PrefixLen() const { return version[1] == 0 ? 0 : 2; }
};

// What a connection's first handshake came to.
enum class TlsOutcome : uint8_t {
    None,              // nothing yet
    RsaKeyExchange,    // Secret() holds it
    OtherKeyExchange,  // Exchange() names it
    Resumed,           // keys of an earlier connection
    Malformed,
    NotTls,
};

// Follows the first handshake of a TLS connection through the byte streams of its two sides, which
// may come in any order of one to the other. A handshake in the clear is the connection's first;
// later ones are encrypted and only counted.
class TlsConnection {
public:
    void FeedClient(const uint8_t* bytes, size_t length);
    void FeedServer(const uint8_t* bytes, size_t length);

    // Nothing more can come of this side's bytes.
    bool IsClientDone() const { return m_Done || m_Client.IsGarbage(); }
    bool IsServerDone() const { return m_Done || m_HasServerHello || m_Server.IsGarbage(); }

    bool HasClientHello() const { return m_HasClientHello; }
    TlsOutcome Outcome() const { return m_Outcome; }
    KeyExchange Exchange() const { return m_Exchange; }
    // Moves the secret out.
    TlsSecret TakeSecret() { return std::move(m_Secret); }
    // Handshakes behind the first.
    uint64_t Renegotiations() const { return m_Changes > 1 ? m_Changes - 1 : 0; }

private:
    class ClientSide;
    class ServerSide;

    void ReadClientHello(const std::vector<uint8_t>& body);
    void ReadServerHello(const std::vector<uint8_t>& body);
    void ReadKeyExchange(const std::vector<uint8_t>& body, uint32_t length);
    void ChangeClientKeys();
    void Decide();
    void DecideRsa();
    void End(TlsOutcome outcome);

    TlsRecords m_Client;
    TlsRecords m_Server;
    TlsSecret m_Secret = {};
    uint64_t m_Changes = 0;  // of the client's keys
    KeyExchange m_Exchange = KeyExchange::Unknown;
    TlsOutcome m_Outcome = TlsOutcome::None;
    bool m_HasClientHello = false;
    bool m_HasServerHello = false;
    bool m_HasKeyExchange = false;
    bool m_Done = false;
};

}  // namespace Kdi
