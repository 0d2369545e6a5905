// Bytes as a rule's log prefix, read as a plain reading of its grammar reads it.

#include <cstdint>
#include <cstdlib>
#include <regex>
#include <string>

#include "Input.h"
#include "LogPrefix.h"

namespace {

using Fuzz::Require;

// The number behind "NAME=" if it is there once at most; otherwise -1.
long long Field(const std::string& text, char name, long long absent) {
    const std::string key = std::string(" ") + name + "=";
    const size_t first = text.find(key);
    if (first == std::string::npos) return absent;
    if (text.find(key, first + 1) != std::string::npos) return -1;
    return std::strtoll(text.c_str() + first + key.size(), nullptr, 10);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The kernel's longest; numbers of more digits would not fit the plain reading's.
    if (size > 128) return 0;
    static const std::regex grammar("velm( +[far]=0*[0-9]{1,12})* *");
    const std::string text(reinterpret_cast<const char*>(data), size);
    const bool wellFormed = std::regex_match(text, grammar);
    const long long filter = wellFormed ? Field(text, 'f', 0) : -1;
    const long long action = wellFormed ? Field(text, 'a', LOG_ACTION_LOG) : -1;
    const long long reason = wellFormed ? Field(text, 'r', 0) : -1;
    const bool good = filter >= 0 && filter <= 4294967295 && action >= 0 && action <= 255 &&
                      reason >= 0 && reason <= 9999;

    Kdi::LogPrefix prefix;
    Require(Kdi::ParseLogPrefix(text, prefix) == good, "same result");
    Require(prefix.filter == (good ? filter : 0), "same filter");
    Require(prefix.action == (good ? action : int{LOG_ACTION_LOG}), "same action");
    Require(prefix.reason == (good ? reason : 0), "same reason");
    return 0;
}
