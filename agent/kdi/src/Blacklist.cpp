#include "Blacklist.h"

#include <arpa/inet.h>

#include <algorithm>

namespace Kdi {

void BlacklistRecords::Keep(const kdi_blacklist_s& record) {
    if (m_Records.size() == CAPACITY) m_Records.pop_front();
    m_Records.push_back(record);
}

unsigned int BlacklistRecords::Take(kdi_blacklist_s* records, unsigned int capacity) {
    const size_t count = std::min<size_t>(capacity, m_Records.size());
    const auto end = m_Records.begin() + static_cast<std::ptrdiff_t>(count);
    std::copy(m_Records.begin(), end, records);
    m_Records.erase(m_Records.begin(), end);
    return static_cast<unsigned int>(count);
}

uint32_t RemainingMsec(int64_t until, int64_t now) {
    return static_cast<uint32_t>(std::clamp<int64_t>((until - now + 999) / 1000, 0, UINT32_MAX));
}

void Blocks::Block(uint32_t address, int64_t until) {
    int64_t& end = *m_Until.Insert(AddressKey({address, 4})).first;
    end = std::max(end, until);
}

void Blocks::Restore(const kdi_block_s* blocks, unsigned int count, int64_t now) {
    for (unsigned int i = 0; i < count; ++i)
        Block(blocks[i].ipv4_addr, now + int64_t{blocks[i].remaining_msec} * 1000);
}

bool Blocks::Unblock(uint32_t address, int64_t now) {
    const bool blocked = IsBlocked(address, now);
    m_Until.Erase(AddressKey({address, 4}));
    return blocked;
}

std::vector<kdi_block_s> Blocks::List(int64_t now) const {
    std::vector<kdi_block_s> list;
    m_Until.ForEach([&](const WordKey& key, int64_t until) {
        if (until > now)
            list.push_back({static_cast<uint32_t>(key.word), RemainingMsec(until, now)});
    });
    std::sort(list.begin(), list.end(), [](const kdi_block_s& a, const kdi_block_s& b) {
        return ntohl(a.ipv4_addr) < ntohl(b.ipv4_addr);
    });
    return list;
}

void Blocks::Expire(int64_t now) {
    std::vector<WordKey> over;
    m_Until.ForEach([&](const WordKey& key, int64_t until) {
        if (until <= now) over.push_back(key);
    });
    for (const WordKey& key : over)
        m_Until.Erase(key);
}

int64_t Blocks::Until(uint32_t address) const {
    const int64_t* until = m_Until.Find(AddressKey({address, 4}));
    return until ? *until : 0;
}

bool Blocks::IsBlocked(uint32_t address, int64_t now) const {
    return now < Until(address);
}

}  // namespace Kdi
