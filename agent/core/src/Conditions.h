#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

namespace VelmCore {

// Named conditions, each with the number of times it was raised. Any thread.
class Conditions {
public:
    // False, with `count` 0, if it was never raised.
    bool Query(const std::string& name, unsigned long long& count) const {
        std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Raised.find(name);
        count = found == m_Raised.end() ? 0 : found->second;
        return count != 0;
    }

    void Raise(const std::string& name) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        ++m_Raised[name];
    }

private:
    mutable std::mutex m_Mutex;
    std::unordered_map<std::string, unsigned long long> m_Raised;  // guarded by m_Mutex
};

}  // namespace VelmCore
