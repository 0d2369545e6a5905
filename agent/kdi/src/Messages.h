#pragma once

#include <deque>
#include <string>

namespace Kdi {

// Messages to people, until they are taken. Beyond 100 the oldest are dropped.
class Messages {
public:
    static constexpr size_t CAPACITY = 100;

    void Put(const std::string& text) {
        if (m_Texts.size() == CAPACITY) m_Texts.pop_front();
        m_Texts.push_back(text);
    }
    bool Take(std::string& text) {
        if (m_Texts.empty()) return false;
        text = std::move(m_Texts.front());
        m_Texts.pop_front();
        return true;
    }

private:
    std::deque<std::string> m_Texts;
};

}  // namespace Kdi
