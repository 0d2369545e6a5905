#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kdi {

enum : uint8_t { TLS_CLIENT_HELLO = 1, TLS_SERVER_HELLO = 2, TLS_CLIENT_KEY_EXCHANGE = 16 };

// What one side of a TLS connection says in the clear.
class TlsListener {
public:
    virtual ~TlsListener() = default;
    // A whole handshake message of one of the kinds above. `body` holds its beginning, of a hello
    // at most TlsRecords::MAX_HELLO bytes and else MAX_KEPT; `length` is what the message has.
    virtual void OnHandshake(uint8_t kind, const std::vector<uint8_t>& body, uint32_t length) = 0;
    // The first one says that the rest of this side is encrypted.
    virtual void OnChangeCipherSpec() = 0;
};

// Takes one side's byte stream apart into records and, until they are encrypted, into handshake
// messages. Holds at most MAX_KEPT bytes, whatever lengths the stream claims.
class TlsRecords {
public:
    static constexpr size_t MAX_HELLO = 320;
    static constexpr size_t MAX_KEPT = 4096;

    // The next bytes of the stream, in pieces of any size.
    void Feed(const uint8_t* bytes, size_t length, TlsListener& listener);

    // The stream is no TLS, or breaks its rules; nothing more will come of it.
    bool IsGarbage() const { return m_Garbage; }

private:
    static constexpr size_t HEADER_LEN = 5;
    static constexpr size_t MESSAGE_HEADER_LEN = 4;

    void FeedHeader(uint8_t byte, TlsListener& listener);
    void BeginRecord(TlsListener& listener);
    void EndRecord();
    void FeedHandshake(const uint8_t* bytes, size_t length, TlsListener& listener);
    size_t FeedBody(const uint8_t* bytes, size_t length);
    void EndMessage(TlsListener& listener);

    std::array<uint8_t, HEADER_LEN> m_Header = {};
    uint8_t m_HeaderLen = 0;    // bytes of it that are there
    uint16_t m_RecordLeft = 0;  // bytes to come of the record's body
    bool m_Encrypted = false;
    bool m_Garbage = false;

    std::array<uint8_t, MESSAGE_HEADER_LEN> m_Message = {};
    uint8_t m_MessageLen = 0;    // bytes of the message's header that are there
    uint32_t m_MessageLeft = 0;  // bytes to come of the message's body
    std::vector<uint8_t> m_Body;
};

}  // namespace Kdi
