#pragma once

#include <cstdint>

namespace Kdi {

// How client and server agree on a secret.
enum class KeyExchange : uint8_t {
    Rsa,  // the client encrypts the secret with the key of the server's certificate
    RsaExport,
    RsaPsk,
    Dh,
    DhAnonymous,
    Dhe,
    DhePsk,
    Ecdh,
    EcdhAnonymous,
    Ecdhe,
    EcdhePsk,
    Kerberos,
    Psk,
    Srp,
    Tls13,
    Unknown,
};
constexpr unsigned int KEY_EXCHANGE_COUNT = static_cast<unsigned int>(KeyExchange::Unknown) + 1;

// "RSA", "DHE", "TLS 1.3"; for people and for reports.
const char* NameOf(KeyExchange keyExchange);

// That of a cipher suite, by its registered number.
KeyExchange KeyExchangeOf(uint16_t cipherSuite);

}  // namespace Kdi
