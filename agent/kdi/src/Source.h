#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kdi/kdi.h"

namespace Kdi {

// Where a handle's entries come from.
class Source {
public:
    virtual ~Source() = default;

    // Fills `entry` if the result is KDI_ENTRY; sets Error() if it is KDI_FAILED.
    virtual kdi_next_result Next(unsigned int timeoutMsec, velm_log_entry_s& entry) = 0;
    // From now on packets of this time (microseconds since the epoch) and later are held back.
    virtual void HoldBack(int64_t) {}
    // Acts on a record that was checked. 0 or an errno value.
    virtual int Block(const kdi_blacklist_s& record) = 0;
    virtual void GetStatistics(kdi_statistics_s& statistics) = 0;

    // Blocks in force, in the order of their addresses.
    virtual std::vector<kdi_block_s> ListBlocks() = 0;
    // 0 or an errno value.
    virtual int Unblock(uint32_t address) = 0;
    virtual int RestoreBlocks(const kdi_block_s* blocks, unsigned int count) = 0;

    // For any thread and for a signal handler.
    virtual void Wake() {}
    virtual int Descriptor() const { return -1; }
    // False if no message waits.
    virtual bool TakeMessage(std::string&) { return false; }

    const std::string& Error() const { return m_Error; }
    const std::string& Description() const { return m_Description; }

protected:
    std::string m_Error;
    std::string m_Description;
};

// Opens by "kind:name". Null on failure, with the reason in `error`.
std::unique_ptr<Source> OpenSource(const std::string& source, const kdi_open_options_s& options,
                                   std::string& error);

}  // namespace Kdi
