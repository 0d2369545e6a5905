#pragma once

#include <cstddef>

#include <wx/string.h>

#include "TextCursor.h"

namespace OSTREL {

// A code and the English text that stands for it.
struct VocabularyRow {
    int code;
    const char* text;
};

// The text in the language of the agent's translation catalogue; as it is without one.
wxString Translate(const char* text);
// The same at the end of a text. Allocates nothing without a catalogue.
void AppendTranslated(TextCursor& out, const char* text);

// The English text of `code`, null if the table has none.
template <size_t N>
const char* FindText(const VocabularyRow (&rows)[N], int code) {
    for (const VocabularyRow& row : rows) {
        if (row.code == code) return row.text;
    }
    return nullptr;
}

}  // namespace OSTREL
