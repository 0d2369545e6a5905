#include "NullSource.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "SystemTime.h"

namespace Kdi {

// A signal ends the waiting early, so that a service notices it.
kdi_next_result NullSource::Next(unsigned int timeoutMsec, velm_log_entry_s&) {
    pollfd wait{m_WakeUp.Descriptor(), POLLIN, 0};
    poll(&wait, 1, static_cast<int>(std::min<unsigned int>(timeoutMsec, INT_MAX)));
    m_WakeUp.Take();
    return KDI_TIMEOUT;
}

int NullSource::Block(const kdi_blacklist_s& record) {
    const int64_t now = SteadyUsec();
    m_Blocks.Expire(now);
    m_Blocks.Block(record.bl_ipv4_addr, now + int64_t{record.bl_duration_msec} * 1000);
    ++m_Accepted;
    return 0;
}

void NullSource::GetStatistics(kdi_statistics_s& statistics) {
    statistics = {};
    statistics.blocks_now = m_Blocks.List(SteadyUsec()).size();
    statistics.blocks_accepted = m_Accepted;
}

std::vector<kdi_block_s> NullSource::ListBlocks() {
    return m_Blocks.List(SteadyUsec());
}

int NullSource::Unblock(uint32_t address) {
    return m_Blocks.Unblock(address, SteadyUsec()) ? 0 : ENOENT;
}

int NullSource::RestoreBlocks(const kdi_block_s* blocks, unsigned int count) {
    m_Blocks.Restore(blocks, count, SteadyUsec());
    return 0;
}

}  // namespace Kdi
