#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// A strict reader of CEF messages: what it takes is unescaped, anything that the format does not
// allow is an error.
struct CefMessage {
    using Field = std::pair<std::string, std::string>;

    std::vector<std::string> header;  // seven columns
    std::vector<Field> extension;     // in the message's order
};

class CefParser {
public:
    // Throws std::runtime_error for a text that is no CEF message.
    static CefMessage Parse(const std::string& text) { return CefParser(text).Run(); }

private:
    static constexpr int kColumns = 7;

    explicit CefParser(const std::string& text) : m_Text(text) {}

    CefMessage Run() {
        for (const char c : m_Text) {
            if (c == '\n' || c == '\r' || c == '\0') throw std::runtime_error("control character");
        }
        CefMessage message;
        for (int i = 0; i < kColumns; ++i)
            message.header.push_back(Column());
        if (message.header[0] != "CEF:0") throw std::runtime_error("no CEF");
        while (m_At < m_Text.size())
            message.extension.push_back(Item());
        return message;
    }

    std::string Column() {
        std::string value;
        for (; m_At < m_Text.size(); ++m_At) {
            const char c = m_Text[m_At];
            if (c == '|') {
                ++m_At;
                return value;
            }
            value += c == '\\' ? Escaped("\\|") : c;
        }
        throw std::runtime_error("header ends early");
    }

    // A key, an equals sign, and a value up to the blank in front of the next key.
    CefMessage::Field Item() {
        std::string key;
        while (m_At < m_Text.size() && m_Text[m_At] != '=')
            key += m_Text[m_At++];
        if (!IsKey(key)) throw std::runtime_error("no key: " + key);
        const size_t end = EndOfValue(++m_At);
        std::string value;
        for (; m_At < end; ++m_At) {
            value += m_Text[m_At] == '\\' ? Escaped("\\=nr") : m_Text[m_At];
        }
        if (end < m_Text.size()) ++m_At;
        return {key, value};
    }

    size_t EndOfValue(size_t begin) const {
        for (size_t i = begin; i < m_Text.size(); ++i) {
            if (m_Text[i] == '\\') {
                ++i;
            } else if (m_Text[i] == '=') {
                const size_t blank = m_Text.rfind(' ', i);
                if (blank == std::string::npos || blank < begin) {
                    throw std::runtime_error("equals sign in a value");
                }
                return blank;
            }
        }
        return m_Text.size();
    }

    char Escaped(const std::string& allowed) {
        if (++m_At >= m_Text.size()) throw std::runtime_error("escape ends early");
        const char c = m_Text[m_At];
        if (allowed.find(c) == std::string::npos) throw std::runtime_error("unknown escape");
        if (c == 'n') return '\n';
        return c == 'r' ? '\r' : c;
    }

    static bool IsKey(const std::string& key) {
        return !key.empty() && key.find_first_not_of(
                                   "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                   "abcdefghijklmnopqrstuvwxyz"
                                   "0123456789") == std::string::npos;
    }

    const std::string& m_Text;
    size_t m_At = 0;
};
