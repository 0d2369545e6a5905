#include "NullSource.h"

#include <poll.h>

#include <algorithm>
#include <climits>

namespace Kdi {

// A signal ends the waiting early, so that a service notices it.
kdi_next_result NullSource::Next(unsigned int timeoutMsec, velm_log_entry_s&) {
    poll(nullptr, 0, static_cast<int>(std::min<unsigned int>(timeoutMsec, INT_MAX)));
    return KDI_TIMEOUT;
}

void NullSource::GetStatistics(kdi_statistics_s& statistics) const {
    statistics = {};
    statistics.first_usec = statistics.last_usec = -1;
}

}  // namespace Kdi
