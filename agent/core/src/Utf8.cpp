#include "Utf8.h"

#include <algorithm>

#include <wx/strconv.h>

namespace VelmCore {
namespace {

constexpr wchar_t REPLACEMENT = 0xFFFD;

// Where wxMBConvUTF8 puts the bytes that are no UTF-8.
bool IsMappedByte(wchar_t c) {
    return c >= 0x100000 && c < 0x100100;
}

bool IsNoCodePoint(wchar_t c) {
    return (c >= 0xD800 && c <= 0xDFFF) || c < 0 || c > 0x10FFFF;
}

}  // namespace

wxString FromUtf8(const std::string& bytes) {
    wxString text = wxString::FromUTF8(bytes.data(), bytes.size());
    if (!text.empty() || bytes.empty()) return text;
    const wxMBConvUTF8 conversion(wxMBConvUTF8::MAP_INVALID_UTF8_TO_PUA);
    std::wstring mapped = wxString(bytes.data(), conversion, bytes.size()).ToStdWstring();
    std::replace_if(mapped.begin(), mapped.end(), IsMappedByte, REPLACEMENT);
    return wxString(mapped);
}

std::string ToUtf8(const wxString& text) {
    std::wstring clean = text.ToStdWstring();
    std::replace_if(clean.begin(), clean.end(), IsNoCodePoint, REPLACEMENT);
    // A string of its own: conversions are kept in the string, which others may be reading.
    const wxString own(clean);
    const wxScopedCharBuffer bytes = own.utf8_str();
    return std::string(bytes.data(), bytes.length());
}

}  // namespace VelmCore
