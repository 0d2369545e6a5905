#pragma once

#include <sys/types.h>

#include <string>

// Puts a file with this text in the place of `path` in one step: a reader sees the former text or
// this one, never a part. `durable` waits until it is on the disk. Empty, or why it failed: the
// former file then stays.
std::string ReplaceFile(const std::string& path, const std::string& text, mode_t mode,
                        bool durable);

// Ends the last line of a log that was cut off in the middle of one, so that the next line stands
// alone. A file that is missing or empty is left alone. Empty, or why it failed.
std::string EndTornLine(const std::string& path);
