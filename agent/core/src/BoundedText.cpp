#include "velm/BoundedText.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// Writes at `used`, which is below `size`. What could not be formatted leaves nothing behind.
__attribute__((format(printf, 4, 0))) void FormatAt(char* buffer, size_t size, size_t used,
                                                    const char* format, va_list arguments) {
    if (vsnprintf(buffer + used, size - used, format, arguments) < 0) buffer[used] = '\0';
}

// Length of the text in the buffer; one that lacks its end is cut to fit.
size_t TerminatedLength(char* buffer, size_t size) {
    const size_t length = strnlen(buffer, size);
    if (length < size) return length;
    buffer[size - 1] = '\0';
    return size - 1;
}

void CopyAt(char* buffer, size_t size, size_t used, const char* source) {
    const size_t length = strnlen(source, size - used - 1);
    memcpy(buffer + used, source, length);
    buffer[used + length] = '\0';
}

}  // namespace

void strcpy_safe(char* destination, size_t size, const char* source) {
    if (size == 0) return;
    CopyAt(destination, size, 0, source);
}

void strcat_safe(char* destination, size_t size, const char* source) {
    if (size == 0) return;
    CopyAt(destination, size, TerminatedLength(destination, size), source);
}

void snprintf_safe(char* destination, size_t size, const char* format, ...) {
    if (size == 0) return;
    va_list arguments;
    va_start(arguments, format);
    FormatAt(destination, size, 0, format, arguments);
    va_end(arguments);
}

void snprintfcat(char* destination, size_t size, const char* format, ...) {
    if (size == 0) return;
    va_list arguments;
    va_start(arguments, format);
    FormatAt(destination, size, TerminatedLength(destination, size), format, arguments);
    va_end(arguments);
}
