#include "velm/SecureString.h"

#include <cstring>
#include <cwchar>

wxSecureString::wxSecureString(const wxString& text) {
    *this = text;
}

wxSecureString::wxSecureString(const wxSecureString& other) {
    *this = other;
}

wxSecureString& wxSecureString::operator=(const wxSecureString& other) {
    if (this != &other) Assign(other.Data(), other.m_Length);
    return *this;
}

wxSecureString& wxSecureString::operator=(const wxString& text) {
    Assign(text.wc_str(), text.length());
    return *this;
}

wxSecureString::~wxSecureString() {
    Scrub();
}

void wxSecureString::Scrub() {
    if (m_Text) explicit_bzero(m_Text.get(), m_Length * sizeof(wchar_t));
    m_Length = 0;
}

bool wxSecureString::operator==(const wxSecureString& other) const {
    return m_Length == other.m_Length && std::wmemcmp(Data(), other.Data(), m_Length) == 0;
}

void wxSecureString::Assign(const wchar_t* text, size_t length) {
    std::unique_ptr<wchar_t[]> copy(new wchar_t[length + 1]);
    std::wmemcpy(copy.get(), text, length);
    copy[length] = L'\0';
    Scrub();
    m_Text = std::move(copy);
    m_Length = length;
}
