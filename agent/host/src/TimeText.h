#pragma once

#include <optional>
#include <string>

// Seconds since the epoch of a text: a number, or "YYYY-MM-DD[ HH:MM[:SS]]" ("T" may stand for the
// blank), in local time unless "Z" or "+hh:mm"/"-hh:mm" ends it. Empty if the text is neither,
// names no existing date, or lies before the epoch or beyond the range of a long.
std::optional<long> ParseTime(const std::string& text);
