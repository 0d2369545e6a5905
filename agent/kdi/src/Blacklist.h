#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "Keys.h"
#include "kdi/kdi.h"

namespace Kdi {

// Blacklist records as they came, until they are taken. Beyond 100,000 the oldest are dropped.
class BlacklistRecords {
public:
    static constexpr size_t CAPACITY = 100000;

    void Keep(const kdi_blacklist_s& record);
    unsigned int Take(kdi_blacklist_s* records, unsigned int capacity);

private:
    std::deque<kdi_blacklist_s> m_Records;
};

// What remains until then, the last millisecond as a whole one.
uint32_t RemainingMsec(int64_t until, int64_t now);

// IPv4 addresses that are blocked until a time. Times in microseconds of the owner's clock;
// addresses in network byte order.
class Blocks {
public:
    // A later end replaces an earlier one.
    void Block(uint32_t address, int64_t until);
    // Blocks each for its remaining time.
    void Restore(const kdi_block_s* blocks, unsigned int count, int64_t now);
    bool IsBlocked(uint32_t address, int64_t now) const;
    bool Empty() const { return m_Until.Size() == 0; }
    size_t Size() const { return m_Until.Size(); }  // with those that are over
    // 0: never blocked, or forgotten.
    int64_t Until(uint32_t address) const;
    // False if it is not blocked.
    bool Unblock(uint32_t address, int64_t now);
    // Those in force, in the order of their addresses.
    std::vector<kdi_block_s> List(int64_t now) const;
    // Forgets those that are over.
    void Expire(int64_t now);

private:
    FlatMap<WordKey, int64_t> m_Until;
};

}  // namespace Kdi
