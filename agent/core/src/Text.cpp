#include "velm/Text.h"

#include <algorithm>
#include <cstring>

#include <openssl/evp.h>
#include <wx/strconv.h>

namespace VelmCore {

wxString toHexString(const std::string& bytes, bool) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const char byte : bytes) {
        const unsigned int value = static_cast<unsigned char>(byte);
        if (!text.empty()) text += ':';
        text += digits[value >> 4];
        text += digits[value & 15];
    }
    return wxString::FromAscii(text.data(), text.size());
}

wxString toBase64String(const std::string& bytes, bool) {
    constexpr size_t chunk = 3 * 16384;  // three bytes become four digits; the encoder takes an int
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    unsigned char digits[chunk / 3 * 4 + 1];
    for (size_t at = 0; at < bytes.size(); at += chunk) {
        unsigned char block[chunk];
        const size_t length = std::min(chunk, bytes.size() - at);
        memcpy(block, bytes.data() + at, length);
        const int encoded = EVP_EncodeBlock(digits, block, static_cast<int>(length));
        text.append(digits, digits + encoded);
    }
    return wxString::FromAscii(text.data(), text.size());
}

wxString toString(int value) {
    return wxString(std::to_string(value));
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
