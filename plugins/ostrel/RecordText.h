#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "TextCursor.h"
#include "kdi/log_entry.h"

// The columns of a log line, as pure functions of an entry. Each appends; what the entry does not
// hold leaves the column empty.
namespace OSTREL {

constexpr int kNoProtocol = -1;

// The entry's protocol number, or kNoProtocol without an IP header.
int ProtocolOf(const velm_log_entry_s& entry);
// True if the entry carries port numbers: TCP or UDP, with a valid transport header.
bool HasPorts(const velm_log_entry_s* entry);
// Fragment bits and offset of an IPv4 entry.
struct FragmentFields {
    bool dontFragment;
    bool moreFragments;
    unsigned int offset;  // bytes
};
FragmentFields FragmentsOf(const velm_log_entry_s& entry);
// The bytes of the note that count.
size_t NoteLength(const velm_log_entry_s& entry);
// The flags of a payload log as the logs show them, in the order of their own bits.
unsigned int RemappedDpiFlags(uint8_t dpiFlags);
// Both times of an entry, microseconds since the epoch.
long long FirstTimeOf(const velm_log_entry_s& entry);
long long LastTimeOf(const velm_log_entry_s& entry);

void AppendInterfaceAddress(TextCursor& text, const uint8_t* address, size_t length);
void AppendFrameType(TextCursor& text, const velm_log_entry_s& entry);
// The addresses of an entry, in the form of its IP header; nothing without one.
void AppendSourceAddress(TextCursor& text, const velm_log_entry_s& entry);
void AppendDestinationAddress(TextCursor& text, const velm_log_entry_s& entry);
void AppendProtocol(TextCursor& text, const velm_log_entry_s& entry);
void AppendTCPFlags(TextCursor& text, const velm_log_entry_s& entry);
void AppendICMP(TextCursor& text, const velm_log_entry_s& entry);
void AppendFragFlags(TextCursor& text, const velm_log_entry_s& entry);

// The columns from the kind to the data tag, each followed by a comma and a blank.
void AppendColumns(TextCursor& text, const velm_log_entry_s& entry, int interfaceId);

// Two upper-case digits a byte. `available` bytes are read; those between it and `length` read as
// zero.
void AppendHexDump(std::string& text, const unsigned char* data, size_t available, size_t length);

}  // namespace OSTREL
