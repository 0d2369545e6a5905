#pragma once

#include <string>

#include "Random.h"

namespace Reference {

constexpr long kLogTime = 1750000000;  // seconds; the lines lie around it

// A time around kLogTime, often one where a line meets the edge of a window or of its slack.
long RandomSecond(Random& random);
// A line of a log file, sound or not.
std::string RandomLine(Random& random);
// A whole file; the last line feed may be missing.
std::string RandomLogFile(Random& random);

}  // namespace Reference
