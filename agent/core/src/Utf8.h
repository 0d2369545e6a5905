#pragma once

#include <string>

#include <wx/string.h>

// Conversions between bytes and text that lose no whole text to a single bad character: each byte
// or code point that cannot be converted becomes U+FFFD.
namespace VelmCore {

wxString FromUtf8(const std::string& bytes);
std::string ToUtf8(const wxString& text);

}  // namespace VelmCore
