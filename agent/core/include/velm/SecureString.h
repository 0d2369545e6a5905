#pragma once

#include <cstddef>
#include <memory>

#include <wx/string.h>

#include "velm/Export.h"

// A text whose memory is wiped when it is given up. Only this object's own memory is: texts that it
// was made from, or was converted to, are the caller's care. Used by one thread at a time.
class VELM_API wxSecureString {
public:
    wxSecureString() = default;
    explicit wxSecureString(const wxString& text);
    wxSecureString(const wxSecureString& other);
    wxSecureString& operator=(const wxSecureString& other);
    wxSecureString& operator=(const wxString& text);
    ~wxSecureString();

    // Wipes the text; the object is empty afterwards. The memory stays the object's until the next
    // assignment.
    void Scrub();

    bool IsEmpty() const { return m_Length == 0; }
    size_t Length() const { return m_Length; }  // characters
    // Terminated by a zero character. Valid until the next assignment.
    const wchar_t* Data() const { return m_Text ? m_Text.get() : L""; }
    // An ordinary copy, which nobody wipes.
    wxString ToString() const { return wxString(Data(), m_Length); }

    bool operator==(const wxSecureString& other) const;
    bool operator!=(const wxSecureString& other) const { return !(*this == other); }

private:
    void Assign(const wchar_t* text, size_t length);

    std::unique_ptr<wchar_t[]> m_Text;
    size_t m_Length = 0;
};

namespace VelmCore {
using ::wxSecureString;
}
