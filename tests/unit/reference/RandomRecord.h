#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "Random.h"
#include "ReferenceText.h"
#include "kdi/log_entry.h"

namespace Reference {

// An entry with its two blocks, as a driver hands them over.
struct Entry {
    velm_log_entry_s fixed;
    std::string packetData;
    std::string logData;

    const unsigned char* PacketBytes() const {
        return reinterpret_cast<const unsigned char*>(packetData.data());
    }
    const unsigned char* LogBytes() const {
        return reinterpret_cast<const unsigned char*>(logData.data());
    }
    RecordBytes Bytes() const {
        return {reinterpret_cast<const unsigned char*>(&fixed), PacketBytes(), packetData.size(),
                LogBytes(), logData.size()};
    }
};

// Bytes at random, then the fields that decide about columns mostly set to values that matter.
inline Entry RandomEntry(Random& random) {
    Entry entry;
    const std::string bytes = random.Bytes(sizeof entry.fixed);
    memcpy(&entry.fixed, bytes.data(), bytes.size());
    unsigned char* raw = reinterpret_cast<unsigned char*>(&entry.fixed);
    const auto set16 = [raw](size_t offset, uint16_t value) {
        memcpy(raw + offset, &value, sizeof value);
    };
    if (!random.OneIn(4)) raw[0x7D] = raw[0x7A] = random.Pick<uint8_t>({1, 6, 17, 58, 2, 77});
    if (random.OneIn(2)) {
        set16(0x72, random.Pick<uint16_t>({0x0008, 0x0608, 0x3580, 0x9181, 0xDD86, 0, 0x0100}));
    }
    if (random.OneIn(2)) {
        set16(0x16, static_cast<uint16_t>(random.Pick<int>({0, 100, 107, 108, 110, 112, 113, -1})));
    }
    if (random.OneIn(2)) raw[0x54] = static_cast<unsigned char>(random.Below(8));
    entry.fixed.log_if_addr_len = random.OneIn(8) ? random.Below(2000) : random.Below(12);
    entry.fixed.log_note_len = static_cast<uint16_t>(random.Below(20));
    const uint32_t most = random.OneIn(2000) ? 70000 : random.OneIn(10) ? 300 : 20;
    entry.packetData = random.Bytes(random.Below(most));
    entry.logData = random.Bytes(random.Below(most));
    if (!random.OneIn(2000)) {
        entry.fixed.log_packet_data_len = static_cast<uint16_t>(random.Below(most));
    }
    entry.fixed.log_data_len = static_cast<uint16_t>(random.Below(most));
    return entry;
}

}  // namespace Reference
