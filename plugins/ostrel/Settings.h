#pragma once

namespace VelmCore {
class CDom;
}

namespace OSTREL {

// Read a number from the agent's settings. A key without a value gives the default. A text that is
// no number is no error and does not bring the default back: the target holds what the conversion
// left.
void GetLongSetting(VelmCore::CDom& dom, const char* key, unsigned int* value,
                    unsigned int defaultValue);
void GetDoubleSetting(VelmCore::CDom& dom, const char* key, double* value, double defaultValue);

}  // namespace OSTREL
