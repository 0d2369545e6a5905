// Bytes as a rule's log prefix, read as a plain reading of its grammar reads it.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Input.h"
#include "LogPrefix.h"

namespace {

using Fuzz::Require;

std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (c == ' ')
            words.emplace_back();
        else
            words.back() += c;
    }
    return words;
}

// Digits alone, no more than `limit`; otherwise -1.
int64_t Number(const std::string& digits, int64_t limit) {
    int64_t number = digits.empty() ? -1 : 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return -1;
        number = number * 10 + (c - '0');
        if (number > limit) return -1;
    }
    return number;
}

// What the text gives to each of "f", "a" and "r"; false if it is not of the form.
bool ReadPlainly(const std::string& text, std::map<char, int64_t>& values) {
    const std::map<char, int64_t> limits = {{'f', 4294967295}, {'a', 255}, {'r', 9999}};
    std::map<char, int64_t> found;
    const std::vector<std::string> words = Words(text);
    if (words[0] != "velm") return false;
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.empty()) continue;
        if (word.size() < 2 || word[1] != '=' || limits.count(word[0]) == 0) return false;
        const int64_t number = Number(word.substr(2), limits.at(word[0]));
        if (number < 0 || !found.emplace(word[0], number).second) return false;
    }
    for (const auto& [name, number] : found)
        values[name] = number;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::map<char, int64_t> expected = {{'f', 0}, {'a', LOG_ACTION_LOG}, {'r', 0}};
    const bool good = ReadPlainly(text, expected);
    Kdi::LogPrefix prefix;
    Require(Kdi::ParseLogPrefix(text, prefix) == good, "same result");
    Require(prefix.filter == expected['f'], "same filter");
    Require(prefix.action == expected['a'], "same action");
    Require(prefix.reason == expected['r'], "same reason");
    return 0;
}
