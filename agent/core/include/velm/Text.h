#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <wx/string.h>

#include "velm/Export.h"

// Small text services. All may be called on any thread.
namespace VelmCore {

// Two lower-case digits a byte, joined by ":". The flag is reserved; callers pass false.
VELM_API wxString toHexString(const std::string& bytes, bool reserved);
// The same in a caller's buffer: at most `room` bytes are written, what does not fit is cut, and
// there is no terminator. Returns the number of bytes.
VELM_API size_t toHexText(const void* bytes, size_t length, char* out, size_t room);
// Base64 without line breaks. The flag is reserved; callers pass false.
VELM_API wxString toBase64String(const std::string& bytes, bool reserved);
// The same in a caller's buffer, as with toHexText.
VELM_API size_t toBase64Text(const void* bytes, size_t length, char* out, size_t room);
// Decimal text.
VELM_API wxString toString(int value);
// `text` with "/" for every vertical bar, so that it can stand as one field of an event text.
VELM_API wxString ReplaceBars(const wxString& text);
// The C library's text of an errno value.
VELM_API wxString ErrnoToString(int error);
// The text of the newest entry of the calling thread's OpenSSL error queue, which it takes off the
// queue. Empty if the queue is.
VELM_API wxString OpenSSLError();

// The length in bytes of the UTF-8 character at `at`, which is inside the text. 0 if there is none:
// cut short, longer than its value needs, a surrogate, or beyond the last code point.
VELM_API size_t Utf8Length(std::string_view text, size_t at);
// True if the whole text is UTF-8 by that measure.
VELM_API bool IsUtf8(std::string_view text);

}  // namespace VelmCore
