#pragma once

#include "TextCursor.h"
#include "kdi/log_entry.h"

// The items of a syslog message that are pure functions of an entry. Each appends a blank, its key,
// an equals sign and its value, or nothing where the entry does not hold it. `format` 0 has keys in
// upper case; from 2 on a label follows where there is one.
namespace OSTREL {

constexpr int kFormatUpperCase = 0;
constexpr int kFormatNoAction = 1;
constexpr int kFormatExtended = 2;  // and everything above

void AppendIPsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendFragFlagsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendProtocolSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendPortsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendTCPFlagsSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendICMPSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendRepeatCountSyslog(int format, TextCursor& text, const velm_log_entry_s& entry);
void AppendLengthSyslog(TextCursor& text, unsigned int length, std::string_view key = "LEN");

// " key=" and the value.
void AppendItem(TextCursor& text, std::string_view key, std::string_view value);
template <class Integer>
void AppendNumberItem(TextCursor& text, std::string_view key, Integer value) {
    AppendItem(text, key, {});
    text.PutNumber(value);
}
// " keyLabel=label", from the extended format on.
void AppendLabel(int format, TextCursor& text, std::string_view key, std::string_view label);

}  // namespace OSTREL
