#pragma once

#include <cstddef>
#include <string>

// The text of a record in the plainest way: its bytes are read by their offsets, and each piece is
// appended with snprintf.
namespace Reference {

struct RecordBytes {
    const unsigned char* fixed;  // 180 bytes
    const unsigned char* packetData;
    size_t packetDataLength;
    const unsigned char* logData;
    size_t logDataLength;
};

// The columns between the time stamp and the count.
std::string RecordText(const RecordBytes& record, int interfaceId);

// Microseconds since the epoch.
long long FirstTime(const unsigned char* fixed);
long long LastTime(const unsigned char* fixed);

}  // namespace Reference
