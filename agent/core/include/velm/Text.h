#pragma once

#include <string>

#include <wx/string.h>

#include "velm/Export.h"

// Small text services. All may be called on any thread.
namespace VelmCore {

// Two lower-case digits a byte, joined by ":". The flag is reserved; callers pass false.
VELM_API wxString toHexString(const std::string& bytes, bool reserved);
// Base64 without line breaks. The flag is reserved; callers pass false.
VELM_API wxString toBase64String(const std::string& bytes, bool reserved);
// Decimal text.
VELM_API wxString toString(int value);
// `text` with "/" for every vertical bar, so that it can stand as one field of an event text.
VELM_API wxString ReplaceBars(const wxString& text);
// The C library's text of an errno value.
VELM_API wxString ErrnoToString(int error);
// The text of the newest entry of the calling thread's OpenSSL error queue, which it takes off the
// queue. Empty if the queue is.
VELM_API wxString OpenSSLError();

}  // namespace VelmCore
