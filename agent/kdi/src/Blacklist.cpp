#include "Blacklist.h"

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

void Blocks::Block(uint32_t address, int64_t until) {
    int64_t& end = *m_Until.Insert(AddressKey({address, 4})).first;
    end = std::max(end, until);
}

bool Blocks::IsBlocked(uint32_t address, int64_t now) const {
    const int64_t* until = m_Until.Find(AddressKey({address, 4}));
    return until && now < *until;
}

}  // namespace Kdi
