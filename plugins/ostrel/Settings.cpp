#include "Settings.h"

#include <wx/string.h>

#include "velm/Dom.h"

namespace OSTREL {

namespace {

wxString SettingText(VelmCore::CDom& dom, const char* key) {
    return wxString(dom.Get(key).c_str(), wxConvLibc);
}

}  // namespace

void GetLongSetting(VelmCore::CDom& dom, const char* key, unsigned int* value,
                    unsigned int defaultValue) {
    *value = defaultValue;
    const wxString text = SettingText(dom, key);
    if (text.empty()) return;
    long number = 0;
    text.ToLong(&number, 10);
    *value = static_cast<unsigned int>(number);
}

void GetDoubleSetting(VelmCore::CDom& dom, const char* key, double* value, double defaultValue) {
    *value = defaultValue;
    const wxString text = SettingText(dom, key);
    if (text.empty()) return;
    double number = 0.0;
    text.ToDouble(&number);
    *value = number;
}

}  // namespace OSTREL
