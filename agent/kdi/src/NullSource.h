#pragma once

#include "Source.h"

namespace Kdi {

// Never has an entry.
class NullSource : public Source {
public:
    kdi_next_result Next(unsigned int timeoutMsec, velm_log_entry_s& entry) override;
    int Block(const kdi_blacklist_s&) override { return 0; }
    void GetStatistics(kdi_statistics_s& statistics) const override;
};

}  // namespace Kdi
