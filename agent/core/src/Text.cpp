#include "velm/Text.h"

#include <algorithm>
#include <cstring>

#include <openssl/evp.h>
#include <wx/strconv.h>

namespace VelmCore {

size_t toHexText(const void* bytes, size_t length, char* out, size_t room) {
    static const char digits[] = "0123456789abcdef";
    const auto* values = static_cast<const unsigned char*>(bytes);
    size_t at = 0;
    for (size_t i = 0; i < length && at < room; ++i) {
        const char part[3] = {':', digits[values[i] >> 4], digits[values[i] & 15]};
        const size_t skipped = i == 0 ? 1 : 0;
        const size_t count = std::min(sizeof(part) - skipped, room - at);
        memcpy(out + at, part + skipped, count);
        at += count;
    }
    return at;
}

wxString toHexString(const std::string& bytes, bool) {
    std::string text(bytes.size() * 3, '\0');
    text.resize(toHexText(bytes.data(), bytes.size(), text.data(), text.size()));
    return wxString::FromAscii(text.data(), text.size());
}

size_t toBase64Text(const void* bytes, size_t length, char* out, size_t room) {
    constexpr size_t chunk = 3 * 256;  // three bytes become four digits
    const auto* values = static_cast<const unsigned char*>(bytes);
    unsigned char encoded[chunk / 3 * 4 + 1];  // the encoder writes a terminator
    size_t at = 0;
    for (size_t done = 0; done < length && at < room; done += chunk) {
        const int size = static_cast<int>(std::min(chunk, length - done));
        const int digits = EVP_EncodeBlock(encoded, values + done, size);
        const size_t count = std::min(static_cast<size_t>(digits), room - at);
        memcpy(out + at, encoded, count);
        at += count;
    }
    return at;
}

wxString toBase64String(const std::string& bytes, bool) {
    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    toBase64Text(bytes.data(), bytes.size(), text.data(), text.size());
    return wxString::FromAscii(text.data(), text.size());
}

wxString toString(int value) {
    return wxString(std::to_string(value));
}

size_t Utf8Length(std::string_view text, size_t at) {
    const auto byteAt = [text](size_t i) -> unsigned int {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned int lead = byteAt(at);
    const unsigned int next = byteAt(at + 1);
    if (lead < 0x80) return 1;
    size_t length = 0;
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    if (lead >= 0xE0 && lead <= 0xEF) length = 3;
    if (lead >= 0xF0 && lead <= 0xF4) length = 4;
    const bool isOutside = (lead == 0xE0 && next < 0xA0) || (lead == 0xED && next > 0x9F) ||
                           (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next > 0x8F);
    if (isOutside) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(at + i) & 0xC0) != 0x80) return 0;
    }
    return length;
}

bool IsUtf8(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8Length(text, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

wxString ReplaceBars(const wxString& text) {
    wxString replaced(text);
    replaced.Replace("|", "/");
    return replaced;
}

wxString ErrnoToString(int error) {
    char buffer[256];
    return wxString(strerror_r(error, buffer, sizeof(buffer)), wxConvLibc);
}

}  // namespace VelmCore
