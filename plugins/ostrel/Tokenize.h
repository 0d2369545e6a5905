#pragma once

#include <wx/string.h>

namespace OSTREL {

// Appends the parts of `text` between any of the delimiter characters to `out`. Runs of delimiters
// count as one, so no token is empty.
template <class Container>
void Tokenize(Container& out, const wxString& text, const wchar_t* delimiters) {
    size_t start = text.find_first_not_of(delimiters, 0);
    while (start != wxString::npos) {
        const size_t end = text.find_first_of(delimiters, start);
        if (end == wxString::npos) {
            out.push_back(text.substr(start));
            return;
        }
        out.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
    }
}

}  // namespace OSTREL
