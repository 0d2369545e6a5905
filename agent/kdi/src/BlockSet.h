#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SetListing.h"
#include "kdi/kdi.h"

struct nft_ctx;

namespace Kdi {

// The kernel's set of blocked addresses: `blocked4` of the table `inet velm`. Operations give 0 or
// an errno value, and then Error() has the words. ENOENT: the table or the set is not there. Each
// is one transaction: all of it or nothing.
class BlockSet {
public:
    static constexpr const char* NAME = "set inet velm blocked4";

    BlockSet();

    // An address that is there gets the new time.
    int Add(const std::vector<kdi_block_s>& blocks);
    // Addresses that are not there are none the worse.
    int Remove(const std::vector<uint32_t>& addresses);
    int Read(std::vector<SetElement>& elements);

    const std::string& Error() const { return m_Error; }

private:
    struct Freer {
        void operator()(nft_ctx* context) const;
    };
    int Run(const std::string& command);

    std::unique_ptr<nft_ctx, Freer> m_Context;
    std::string m_Error;
};

}  // namespace Kdi
