#include "LogPrefix.h"

#include <charconv>

namespace Kdi {

namespace {

constexpr std::string_view WORD = "velm";
// Reasons from 10000 on tell of connections, which no rule can.
constexpr uint32_t MAX_REASON = 9999;
constexpr uint32_t MAX_ACTION = 255;

// The text up to the next blank, which is taken off with the blanks behind it.
std::string_view TakeToken(std::string_view& text) {
    const size_t end = std::min(text.find(' '), text.size());
    const std::string_view token = text.substr(0, end);
    text.remove_prefix(std::min(text.find_first_not_of(' ', end), text.size()));
    return token;
}

bool ParseNumber(std::string_view text, uint32_t maximum, uint32_t& number) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number <= maximum;
}

struct Fields {
    uint32_t filter = 0;
    uint32_t action = LOG_ACTION_LOG;
    uint32_t reason = LOG_REASON_FILTER;
    unsigned int seen = 0;

    // False if the token is no field, or a second one of its kind.
    bool Take(std::string_view token) {
        if (token.size() < 3 || token[1] != '=') return false;
        const std::string_view number = token.substr(2);
        switch (token[0]) {
            case 'f':
                return See(1) && ParseNumber(number, UINT32_MAX, filter);
            case 'a':
                return See(2) && ParseNumber(number, MAX_ACTION, action);
            case 'r':
                return See(4) && ParseNumber(number, MAX_REASON, reason);
            default:
                return false;
        }
    }
    bool See(unsigned int bit) {
        const bool isNew = !(seen & bit);
        seen |= bit;
        return isNew;
    }
};

}  // namespace

bool ParseLogPrefix(std::string_view text, LogPrefix& prefix) {
    prefix = {};
    if (TakeToken(text) != WORD) return false;
    Fields fields;
    while (!text.empty()) {
        if (!fields.Take(TakeToken(text))) return false;
    }
    prefix.filter = fields.filter;
    prefix.action = static_cast<uint16_t>(fields.action);
    prefix.reason = static_cast<int16_t>(fields.reason);
    return true;
}

}  // namespace Kdi
