#include "Vocabulary.h"

#include <wx/translation.h>

namespace OSTREL {

wxString Translate(const char* text) {
    const wxTranslations* translations = wxTranslations::Get();
    const wxString* translated = translations ? translations->GetTranslatedString(text) : nullptr;
    return translated ? *translated : wxString(text);
}

}  // namespace OSTREL
