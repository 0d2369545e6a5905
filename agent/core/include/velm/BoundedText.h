#pragma once

#include <cstddef>

#include "velm/Export.h"

// Bounded text operations. `size` is that of the whole buffer, not the room that is left. None
// writes beyond it; all leave the buffer terminated and cut too long a text silently. A `size` of 0
// writes nothing.
extern "C" {

// Replaces the text in the buffer.
VELM_API void strcpy_safe(char* destination, size_t size, const char* source);
// Appends to the text in the buffer.
VELM_API void strcat_safe(char* destination, size_t size, const char* source);
// Replaces the text, with printf formatting.
VELM_API void snprintf_safe(char* destination, size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
// Appends, with printf formatting.
VELM_API void snprintfcat(char* destination, size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // extern "C"
