#include "Vocabulary.h"

#include <wx/translation.h>

namespace OSTREL {

wxString Translate(const char* text) {
    const wxTranslations* translations = wxTranslations::Get();
    const wxString* translated = translations ? translations->GetTranslatedString(text) : nullptr;
    return translated ? *translated : wxString(text);
}

void AppendTranslated(TextCursor& out, const char* text) {
    if (wxTranslations::Get() == nullptr) {
        out.Put(text);
    } else {
        out.Put(Translate(text).utf8_str().data());
    }
}

}  // namespace OSTREL
