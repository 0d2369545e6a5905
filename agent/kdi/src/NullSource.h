#pragma once

#include "Blacklist.h"
#include "Source.h"
#include "WakeUp.h"

namespace Kdi {

// Never has an entry. Blocks are recorded, with their times.
class NullSource : public Source {
public:
    kdi_next_result Next(unsigned int timeoutMsec, velm_log_entry_s& entry) override;
    int Block(const kdi_blacklist_s& record) override;
    void GetStatistics(kdi_statistics_s& statistics) override;
    std::vector<kdi_block_s> ListBlocks() override;
    int Unblock(uint32_t address) override;
    int RestoreBlocks(const kdi_block_s* blocks, unsigned int count) override;
    void Wake() override { m_WakeUp.Raise(); }
    int Descriptor() const override { return m_WakeUp.Descriptor(); }

private:
    WakeUp m_WakeUp;
    Blocks m_Blocks;  // on the steady clock
    uint64_t m_Accepted = 0;
};

}  // namespace Kdi
