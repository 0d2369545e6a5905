#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Kdi {

// Drawn once in a process, so that a capture cannot be made to collide. No result depends on it:
// tables are looked up, and what is listed is sorted first.
extern const uint64_t g_HashSeed;

inline uint64_t Mix(uint64_t a, uint64_t b) {
    uint64_t hash = (a ^ g_HashSeed) * 0x9E3779B97F4A7C15u;
    hash = (hash ^ (hash >> 32) ^ b) * 0xD6E8FEB86659FD93u;
    hash = (hash ^ (hash >> 32)) * 0xD6E8FEB86659FD93u;
    return hash ^ (hash >> 32);
}

// The value of a table that is a set. It takes no room.
struct Nothing {};

template <typename Key, typename Value>
struct FlatSlot {
    Key key;
    Value value;
};
template <typename Key>
struct FlatSlot<Key, Nothing> {
    Key key;
    static inline Nothing value;
};

// An open-addressing table with linear probing; one block of memory, no allocation for an element.
// A key is small and trivially copyable, has Empty() (true when default-made), Hash() and ==.
// A pointer into the table is valid until the next Insert or Erase.
template <typename Key, typename Value>
class FlatMap {
public:
    size_t Size() const { return m_Size; }

    Value* Find(const Key& key) {
        if (m_Size == 0) return nullptr;
        Slot& slot = m_Slots[Position(key)];
        return slot.key.Empty() ? nullptr : &slot.value;
    }
    const Value* Find(const Key& key) const { return const_cast<FlatMap*>(this)->Find(key); }

    // Asks the memory for what a later Find or Insert of the key will touch.
    void Prefetch(const Key& key) const {
        if (!m_Slots.empty()) __builtin_prefetch(&m_Slots[key.Hash() & (m_Slots.size() - 1)], 1);
    }

    // The value of the key, made from Value() if it is new; and whether it is new.
    std::pair<Value*, bool> Insert(const Key& key) {
        if ((m_Size + 1) * 3 > m_Slots.size() * 2) Grow();
        Slot& slot = m_Slots[Position(key)];
        const bool isNew = slot.key.Empty();
        if (isNew) {
            slot.key = key;
            slot.value = Value();
            ++m_Size;
        }
        return {&slot.value, isNew};
    }

    // Moves the elements behind the hole up, so that no search meets a gap.
    void Erase(const Key& key) {
        if (m_Size == 0) return;
        size_t hole = Position(key);
        if (m_Slots[hole].key.Empty()) return;
        const size_t mask = m_Slots.size() - 1;
        for (size_t at = (hole + 1) & mask; !m_Slots[at].key.Empty(); at = (at + 1) & mask) {
            const size_t home = m_Slots[at].key.Hash() & mask;
            if (((at - home) & mask) < ((at - hole) & mask)) continue;
            m_Slots[hole] = m_Slots[at];
            hole = at;
        }
        m_Slots[hole].key = Key();
        --m_Size;
    }

    // In no order that may show: sort what is taken from here.
    template <typename Visit>
    void ForEach(Visit visit) const {
        for (const Slot& slot : m_Slots) {
            if (!slot.key.Empty()) visit(slot.key, slot.value);
        }
    }

private:
    using Slot = FlatSlot<Key, Value>;

    size_t Position(const Key& key) const {
        const size_t mask = m_Slots.size() - 1;
        size_t at = key.Hash() & mask;
        while (!m_Slots[at].key.Empty() && !(m_Slots[at].key == key))
            at = (at + 1) & mask;
        return at;
    }

    void Grow() {
        std::vector<Slot> old(m_Slots.empty() ? 64 : m_Slots.size() * 2);
        old.swap(m_Slots);
        for (const Slot& slot : old) {
            if (!slot.key.Empty()) m_Slots[Position(slot.key)] = slot;
        }
    }

    std::vector<Slot> m_Slots;
    size_t m_Size = 0;
};

}  // namespace Kdi
