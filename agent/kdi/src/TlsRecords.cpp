#include "TlsRecords.h"

#include <algorithm>

#include "Bytes.h"

namespace Kdi {

namespace {

enum : uint8_t { RECORD_CHANGE_CIPHER_SPEC = 20, RECORD_HANDSHAKE = 22, RECORD_HEARTBEAT = 24 };
// A record may grow by so much when it is compressed and encrypted.
constexpr uint16_t MAX_RECORD = 16384 + 2048;

uint32_t BigEndian24(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 16 | BigEndian16(bytes + 1);
}

// How much of a message is of interest.
size_t RoomFor(uint8_t kind) {
    if (kind == TLS_CLIENT_KEY_EXCHANGE) return TlsRecords::MAX_KEPT;
    return kind == TLS_CLIENT_HELLO || kind == TLS_SERVER_HELLO ? TlsRecords::MAX_HELLO : 0;
}

}  // namespace

void TlsRecords::Feed(const uint8_t* bytes, size_t length, TlsListener& listener) {
    while (length > 0 && !m_Garbage) {
        size_t taken = 1;
        if (m_HeaderLen < HEADER_LEN) {
            FeedHeader(*bytes, listener);
        } else {
            taken = std::min<size_t>(length, m_RecordLeft);
            if (m_Header[0] == RECORD_HANDSHAKE && !m_Encrypted)
                FeedHandshake(bytes, taken, listener);
            m_RecordLeft = static_cast<uint16_t>(m_RecordLeft - taken);
        }
        bytes += taken;
        length -= taken;
        if (m_HeaderLen == HEADER_LEN && m_RecordLeft == 0) EndRecord();
    }
}

void TlsRecords::FeedHeader(uint8_t byte, TlsListener& listener) {
    m_Header[m_HeaderLen++] = byte;
    if (m_HeaderLen == HEADER_LEN) BeginRecord(listener);
}

void TlsRecords::BeginRecord(TlsListener& listener) {
    const uint8_t kind = m_Header[0];
    m_RecordLeft = BigEndian16(&m_Header[3]);
    if (kind < RECORD_CHANGE_CIPHER_SPEC || kind > RECORD_HEARTBEAT || m_Header[1] != 3 ||
        m_RecordLeft > MAX_RECORD) {
        m_Garbage = true;
        return;
    }
    if (kind != RECORD_CHANGE_CIPHER_SPEC) return;
    // A message that is cut off by the change of keys would never end.
    m_Garbage = m_MessageLen != 0;
    m_Encrypted = true;
    if (!m_Garbage) listener.OnChangeCipherSpec();
}

void TlsRecords::EndRecord() {
    m_HeaderLen = 0;
}

void TlsRecords::FeedHandshake(const uint8_t* bytes, size_t length, TlsListener& listener) {
    while (length > 0) {
        size_t taken = 1;
        if (m_MessageLen < MESSAGE_HEADER_LEN) {
            m_Message[m_MessageLen++] = *bytes;
            if (m_MessageLen == MESSAGE_HEADER_LEN) m_MessageLeft = BigEndian24(&m_Message[1]);
        } else {
            taken = FeedBody(bytes, length);
        }
        bytes += taken;
        length -= taken;
        if (m_MessageLen == MESSAGE_HEADER_LEN && m_MessageLeft == 0) EndMessage(listener);
    }
}

size_t TlsRecords::FeedBody(const uint8_t* bytes, size_t length) {
    const size_t taken = std::min<size_t>(length, m_MessageLeft);
    m_MessageLeft -= static_cast<uint32_t>(taken);
    const size_t room = RoomFor(m_Message[0]);
    if (m_Body.size() < room)
        m_Body.insert(m_Body.end(), bytes, bytes + std::min(taken, room - m_Body.size()));
    return taken;
}

void TlsRecords::EndMessage(TlsListener& listener) {
    const uint8_t kind = m_Message[0];
    m_MessageLen = 0;
    if (RoomFor(kind) != 0) listener.OnHandshake(kind, m_Body, BigEndian24(&m_Message[1]));
    std::vector<uint8_t>().swap(m_Body);
}

}  // namespace Kdi
