#include "TimeText.h"

#include <charconv>
#include <ctime>
#include <limits>
#include <string_view>

namespace {

// Takes what it recognises off the front of a text.
class Scanner {
public:
    explicit Scanner(std::string_view text) : m_Rest(text) {}

    bool AtEnd() const { return m_Rest.empty(); }
    bool Take(char wanted) {
        if (m_Rest.empty() || m_Rest[0] != wanted) return false;
        m_Rest.remove_prefix(1);
        return true;
    }
    // Exactly `digits` decimal digits, a value of at most `maximum`.
    bool TakeNumber(size_t digits, int maximum, int& value) {
        if (m_Rest.size() < digits) return false;
        const char* end = m_Rest.data() + digits;
        const auto result = std::from_chars(m_Rest.data(), end, value);
        if (result.ptr != end || m_Rest[0] == '-' || value > maximum) return false;
        m_Rest.remove_prefix(digits);
        return true;
    }

private:
    std::string_view m_Rest;
};

bool TakeDate(Scanner& scanner, tm& fields) {
    int year = 0, month = 0;
    if (!scanner.TakeNumber(4, 9999, year) || !scanner.Take('-') ||
        !scanner.TakeNumber(2, 12, month) || !scanner.Take('-') ||
        !scanner.TakeNumber(2, 31, fields.tm_mday))
        return false;
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    tm copy = fields;
    return timegm(&copy) != -1 && copy.tm_mon == fields.tm_mon && copy.tm_mday == fields.tm_mday;
}

bool TakeClock(Scanner& scanner, tm& fields) {
    if (!scanner.Take(' ') && !scanner.Take('T')) return true;
    if (!scanner.TakeNumber(2, 23, fields.tm_hour) || !scanner.Take(':') ||
        !scanner.TakeNumber(2, 59, fields.tm_min))
        return false;
    return !scanner.Take(':') || scanner.TakeNumber(2, 59, fields.tm_sec);
}

// The zone that ends the text, as seconds east of Greenwich; none if the text has ended.
bool TakeZone(Scanner& scanner, std::optional<int>& east) {
    if (scanner.AtEnd()) return true;
    if (scanner.Take('Z')) {
        east = 0;
        return scanner.AtEnd();
    }
    const bool isEast = scanner.Take('+');
    int hours = 0, minutes = 0;
    if ((!isEast && !scanner.Take('-')) || !scanner.TakeNumber(2, 23, hours) ||
        !scanner.Take(':') || !scanner.TakeNumber(2, 59, minutes))
        return false;
    east = (isEast ? 1 : -1) * (hours * 3600 + minutes * 60);
    return scanner.AtEnd();
}

std::optional<long> InRange(long long seconds) {
    if (seconds < 0 || seconds > std::numeric_limits<long>::max()) return std::nullopt;
    return static_cast<long>(seconds);
}

std::optional<long> ParseSeconds(const std::string& text) {
    long long seconds = -1;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, seconds);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return InRange(seconds);
}

}  // namespace

std::optional<long> ParseTime(const std::string& text) {
    if (const auto seconds = ParseSeconds(text)) return seconds;
    Scanner scanner(text);
    tm fields{};
    std::optional<int> east;
    if (!TakeDate(scanner, fields) || !TakeClock(scanner, fields) || !TakeZone(scanner, east))
        return std::nullopt;
    fields.tm_isdst = -1;
    return InRange(east ? static_cast<long long>(timegm(&fields)) - *east : mktime(&fields));
}
