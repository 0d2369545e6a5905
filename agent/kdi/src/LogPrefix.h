#pragma once

#include <cstdint>
#include <string_view>

#include "kdi/log_entry.h"

namespace Kdi {

// What an nftables rule says of the packets that it logs.
struct LogPrefix {
    uint32_t filter = 0;
    uint16_t action = LOG_ACTION_LOG;
    int16_t reason = LOG_REASON_FILTER;
};

// Reads a rule's log prefix, as in "velm f=1 a=1 r=100 ": the word, then filter, action (up to 255)
// and reason (up to 9999) as decimal numbers, each at most once, in any order, with blanks between
// and behind. What is not named keeps its default. False if the text is not of that form, and
// `prefix` then has the defaults: the packet was only logged.
bool ParseLogPrefix(std::string_view text, LogPrefix& prefix);

}  // namespace Kdi
