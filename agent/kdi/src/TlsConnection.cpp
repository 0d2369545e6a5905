#include "TlsConnection.h"

#include <cstring>
#include <utility>

#include "Bytes.h"

namespace Kdi {

namespace {

constexpr size_t RANDOM_LEN = 32;
constexpr size_t VERSION_LEN = 2;
// What every hello begins with: version, random and the length of the session's identifier.
constexpr size_t HELLO_LEN = VERSION_LEN + RANDOM_LEN + 1;
// A secret of 48 bytes with the least padding.
constexpr size_t MIN_ENCRYPTED = 48 + 11;

}  // namespace

class TlsConnection::ClientSide : public TlsListener {
public:
    explicit ClientSide(TlsConnection& connection) : m_Connection(connection) {}
    void OnHandshake(uint8_t kind, const std::vector<uint8_t>& body, uint32_t length) override {
        if (m_Connection.m_Done) return;  // the rest of a piece
        if (kind == TLS_CLIENT_HELLO) m_Connection.ReadClientHello(body);
        if (kind == TLS_CLIENT_KEY_EXCHANGE) m_Connection.ReadKeyExchange(body, length);
        if (kind == TLS_SERVER_HELLO) m_Connection.End(TlsOutcome::Malformed);
    }
    void OnChangeCipherSpec() override { m_Connection.ChangeClientKeys(); }

private:
    TlsConnection& m_Connection;
};

class TlsConnection::ServerSide : public TlsListener {
public:
    explicit ServerSide(TlsConnection& connection) : m_Connection(connection) {}
    void OnHandshake(uint8_t kind, const std::vector<uint8_t>& body, uint32_t) override {
        if (m_Connection.m_Done || m_Connection.m_HasServerHello) return;
        if (kind == TLS_SERVER_HELLO)
            m_Connection.ReadServerHello(body);
        else
            m_Connection.End(TlsOutcome::Malformed);
    }
    void OnChangeCipherSpec() override {}

private:
    TlsConnection& m_Connection;
};

void TlsConnection::FeedClient(const uint8_t* bytes, size_t length) {
    if (IsClientDone()) return;
    ClientSide listener(*this);
    m_Client.Feed(bytes, length, listener);
    if (m_Client.IsGarbage()) End(m_HasClientHello ? TlsOutcome::Malformed : TlsOutcome::NotTls);
}

void TlsConnection::FeedServer(const uint8_t* bytes, size_t length) {
    if (IsServerDone()) return;
    ServerSide listener(*this);
    m_Server.Feed(bytes, length, listener);
    if (m_Server.IsGarbage() && !m_HasServerHello) End(TlsOutcome::Malformed);
}

// Only the first outcome counts: what comes behind it is not the first handshake's.
void TlsConnection::End(TlsOutcome outcome) {
    if (m_Outcome != TlsOutcome::None) return;
    m_Outcome = outcome;
    m_Done = outcome == TlsOutcome::Malformed || outcome == TlsOutcome::NotTls ||
             m_Exchange == KeyExchange::Tls13;
}

void TlsConnection::ReadClientHello(const std::vector<uint8_t>& body) {
    if (m_HasClientHello) return;  // a second one follows a server's wish for TLS 1.3
    if (body.size() < HELLO_LEN || body[0] != 3) return End(TlsOutcome::Malformed);
    std::memcpy(m_Secret.offeredVersion, body.data(), VERSION_LEN);
    std::memcpy(m_Secret.clientRandom.data(), &body[VERSION_LEN], RANDOM_LEN);
    m_HasClientHello = true;
}

void TlsConnection::ReadServerHello(const std::vector<uint8_t>& body) {
    const size_t suite = body.size() < HELLO_LEN ? 0 : HELLO_LEN + body[HELLO_LEN - 1];
    if (suite == 0 || body.size() < suite + 2 || body[0] != 3) return End(TlsOutcome::Malformed);
    std::memcpy(m_Secret.version, body.data(), VERSION_LEN);
    m_Exchange = KeyExchangeOf(BigEndian16(&body[suite]));
    m_HasServerHello = true;
    Decide();
}

void TlsConnection::ReadKeyExchange(const std::vector<uint8_t>& body, uint32_t length) {
    if (!m_HasClientHello || m_HasKeyExchange) return End(TlsOutcome::Malformed);
    m_HasKeyExchange = true;
    // One that is too long to be kept is none of RSA; Decide finds it empty.
    if (length == body.size()) m_Secret.encrypted = body;
    Decide();
}

void TlsConnection::ChangeClientKeys() {
    if (m_Done) return;
    ++m_Changes;
    if (!m_HasClientHello) return End(TlsOutcome::Malformed);
    Decide();
}

void TlsConnection::Decide() {
    if (m_Outcome != TlsOutcome::None || !m_HasServerHello) return;
    if (m_Exchange == KeyExchange::Tls13)
        End(TlsOutcome::OtherKeyExchange);
    else if (m_HasKeyExchange)
        m_Exchange == KeyExchange::Rsa ? DecideRsa() : End(TlsOutcome::OtherKeyExchange);
    else if (m_Changes != 0)
        End(TlsOutcome::Resumed);
}

void TlsConnection::DecideRsa() {
    const std::vector<uint8_t>& encrypted = m_Secret.encrypted;
    const size_t prefix = m_Secret.PrefixLen();
    const bool sound = encrypted.size() >= prefix + MIN_ENCRYPTED &&
                       (prefix == 0 || BigEndian16(encrypted.data()) == encrypted.size() - prefix);
    End(sound ? TlsOutcome::RsaKeyExchange : TlsOutcome::Malformed);
}

}  // namespace Kdi
