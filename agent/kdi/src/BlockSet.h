#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Listing.h"
#include "Nftables.h"
#include "kdi/kdi.h"

namespace Kdi {

// The kernel's set of blocked addresses. Operations give 0 or an errno value, and then Error() has
// the words. ENOENT: the table or the set is not there.
class BlockSet {
public:
    static constexpr const char* NAME = "set inet velm blocked4";

    explicit BlockSet(Nftables& nftables) : m_Nftables(nftables) {}

    // Of an address that is there the time may stay as it is.
    int Add(const std::vector<kdi_block_s>& blocks);
    // An address that is there gets the new time. Who listens to the kernel hears of deletions.
    int Renew(const std::vector<kdi_block_s>& blocks);
    // Addresses that are not there are none the worse.
    int Remove(uint32_t address);
    int Read(std::vector<SetElement>& elements);

    const std::string& Error() const { return m_Error; }

private:
    int Run(const std::string& commands);

    Nftables& m_Nftables;
    std::string m_Error;
};

}  // namespace Kdi
