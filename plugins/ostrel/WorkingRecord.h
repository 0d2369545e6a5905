#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kdi/log_entry.h"

namespace OSTREL {

// One log entry on its way through the pipeline: the fixed part, and the packet data directly
// behind it. Lives on the stack; only Assign makes its bytes defined, and only as far as readers
// look.
class WorkingRecord {
public:
    static constexpr size_t kSize = 65536;
    static constexpr size_t kFixedSize = sizeof(velm_log_entry_s);
    static constexpr size_t kPacketRoom = kSize - kFixedSize;

    // Copies the fixed part and as much packet data as fits; what the entry claims beyond the data
    // reads as zero. The log data is not copied: it must outlive the record.
    void Assign(const velm_log_entry_s& entry, const unsigned char* packetData,
                size_t packetDataLength, const unsigned char* logData, size_t logDataLength);

    const velm_log_entry_s& Entry() const {
        return *reinterpret_cast<const velm_log_entry_s*>(m_Bytes);
    }
    // `length` bytes from an offset within the fixed part on. What lies behind the bytes that were
    // handed over reads as zero, and the text ends with the record.
    std::string BytesAt(size_t offset, size_t length) const;
    const unsigned char* PacketData() const { return m_Bytes + kFixedSize; }
    // The log data block, of Entry().log_data_len bytes.
    const unsigned char* LogDataBlock() const;

private:
    velm_log_entry_s& MutableEntry() { return *reinterpret_cast<velm_log_entry_s*>(m_Bytes); }

    // A pointer that fits travels in the entry's slot, any other one beside the record.
    static constexpr bool kPointerFitsSlot =
        sizeof(const unsigned char*) <= sizeof(velm_log_entry_s::log_data_ptr);

    alignas(8) unsigned char m_Bytes[kSize];
    size_t m_Defined;  // bytes from the beginning
    const unsigned char* m_LogData;
};

}  // namespace OSTREL
