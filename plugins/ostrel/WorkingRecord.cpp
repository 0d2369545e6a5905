#include "WorkingRecord.h"

#include <algorithm>
#include <cstring>

namespace OSTREL {

void WorkingRecord::Assign(const velm_log_entry_s& entry, const unsigned char* packetData,
                           size_t packetDataLength, const unsigned char* logData,
                           size_t logDataLength) {
    memcpy(m_Bytes, &entry, kFixedSize);
    const size_t given = std::min(packetDataLength, kPacketRoom);
    if (given > 0) memcpy(m_Bytes + kFixedSize, packetData, given);
    const size_t claimed = std::min<size_t>(entry.log_packet_data_len, kPacketRoom);
    if (claimed > given) memset(m_Bytes + kFixedSize + given, 0, claimed - given);
    m_Defined = kFixedSize + std::max(given, claimed);

    velm_log_entry_s& fixed = MutableEntry();
    if (fixed.log_data_len > logDataLength) {
        fixed.log_data_len = static_cast<uint16_t>(logDataLength);
    }
    m_LogData = logData;
    if constexpr (kPointerFitsSlot) {
        memcpy(&fixed.log_data_ptr, &logData, sizeof logData);
    }
}

std::string WorkingRecord::BytesAt(size_t offset, size_t length) const {
    length = std::min(length, kSize - offset);
    const size_t defined = std::min(length, m_Defined - offset);
    std::string bytes(reinterpret_cast<const char*>(m_Bytes) + offset, defined);
    bytes.resize(length, '\0');
    return bytes;
}

const unsigned char* WorkingRecord::LogDataBlock() const {
    if constexpr (kPointerFitsSlot) {
        const unsigned char* block;
        memcpy(&block, &Entry().log_data_ptr, sizeof block);
        return block;
    }
    return m_LogData;
}

}  // namespace OSTREL
