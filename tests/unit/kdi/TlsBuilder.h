#pragma once

#include <string>
#include <vector>

#include "CaptureBuilder.h"
#include "FrameParser.h"

// Builds what the sides of a TLS connection send, as bytes, for tests.
namespace KdiTest {

enum : unsigned int {
    SUITE_RSA = 0x009C,
    SUITE_ECDHE = 0xC02F,
    SUITE_TLS13 = 0x1301,
};

inline Bytes TlsRecord(uint8_t kind, const Bytes& body, uint8_t minor = 3) {
    return Bytes{kind, 3, minor} + Big16(static_cast<unsigned int>(body.size())) + body;
}

inline Bytes Message(uint8_t kind, const Bytes& body) {
    const auto size = static_cast<unsigned int>(body.size());
    return Bytes{kind, static_cast<uint8_t>(size >> 16)} + Big16(size & 0xFFFF) + body;
}

inline Bytes Random(uint8_t mark) {
    return Bytes(32, mark);
}

inline Bytes ClientHello(uint8_t minor = 3, uint8_t mark = 0xC1) {
    return Message(1, Bytes{3, minor} + Random(mark) + Bytes{0, 0, 2, 0, 0x9C, 1, 0});
}

inline Bytes ServerHello(unsigned int suite, uint8_t minor = 3, size_t sessionLen = 0) {
    return Message(2, Bytes{3, minor} + Random(0x55) + Bytes{static_cast<uint8_t>(sessionLen)} +
                          Bytes(sessionLen, 0xAA) + Big16(suite) + Bytes{0});
}

// 128 bytes that begin with 1, 2, 3.
inline Bytes Encrypted(size_t size = 128) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i + 1);
    return bytes;
}

inline Bytes KeyExchangeBody(const Bytes& encrypted = Encrypted()) {
    return Big16(static_cast<unsigned int>(encrypted.size())) + encrypted;
}

inline Bytes ChangeCipherSpec() {
    return TlsRecord(20, {1});
}

// What the client of a handshake with RSA key exchange sends, up to its first data.
inline Bytes ClientSide(const Bytes& keyExchange = KeyExchangeBody()) {
    return TlsRecord(22, ClientHello(), 1) + TlsRecord(22, Message(16, keyExchange)) +
           ChangeCipherSpec() + TlsRecord(22, Bytes(40, 0xEE)) + TlsRecord(23, Bytes(100, 0xDD));
}

inline Bytes ServerSide(unsigned int suite = SUITE_RSA) {
    return TlsRecord(22, ServerHello(suite) + Message(11, Bytes(700, 0x30)) + Message(14, {})) +
           ChangeCipherSpec() + TlsRecord(22, Bytes(40, 0xEE));
}

}  // namespace KdiTest
