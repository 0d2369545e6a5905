#pragma once

#include <cstddef>
#include <deque>
#include <iterator>
#include <mutex>
#include <utility>
#include <vector>

namespace VelmCore {

// Keeps the newest items for those who ask. Any thread.
template <typename Item>
class Newest {
public:
    void Add(Item item) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Items.size() == MAX_ITEMS) m_Items.pop_front();
        m_Items.push_back(std::move(item));
    }

    // All items since the last call, oldest first. Cheap if there are none: even an empty deque
    // allocates.
    std::vector<Item> Take() {
        std::unique_lock<std::mutex> lock(m_Mutex);
        if (m_Items.empty()) return {};
        std::deque<Item> taken;
        taken.swap(m_Items);
        lock.unlock();
        return std::vector<Item>(std::make_move_iterator(taken.begin()),
                                 std::make_move_iterator(taken.end()));
    }

private:
    static constexpr size_t MAX_ITEMS = 10000;

    std::mutex m_Mutex;
    std::deque<Item> m_Items;  // guarded by m_Mutex
};

}  // namespace VelmCore
