#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Blacklist.h"
#include "BlockSet.h"
#include "CaptureOptions.h"
#include "HostAddresses.h"
#include "Messages.h"

namespace Kdi {

// What the agent knows to be blocked, and the kernel's set in line with it. Times are the steady
// clock's, in microseconds. Operations that return int give 0 or an errno value, and then Error()
// has the words.
class LiveBlocks {
public:
    // `set`: null for a dry run, which only keeps the books. What the set holds with a time is
    // known from the start: it is what an agent before this one blocked.
    LiveBlocks(const HostAddresses& host, const NetworkList& allowed, BlockSet* set,
               Messages& messages);

    int Block(uint32_t address, uint32_t msec, int64_t now);
    int Unblock(uint32_t address, int64_t now);
    int Restore(const kdi_block_s* blocks, unsigned int count, int64_t now);
    std::vector<kdi_block_s> List(int64_t now) const { return m_Known.List(now); }

    // Somebody may have changed the set: it is looked at soon.
    void NoteChange() { m_Changed = true; }
    // An address of the host may be new: it is not blocked any longer.
    void NoteHostAddresses(int64_t now);
    // When the set is to be looked at next.
    int64_t NextCheck() const;
    // Puts back into the set what is missing there.
    void Check(int64_t now);

    // Fills in the counts of blocks.
    void GetStatistics(int64_t now, kdi_statistics_s& statistics) const;
    const std::string& Error() const { return m_Error; }

private:
    // The size of the kernel's set.
    static constexpr size_t CAPACITY = 65536;

    // Why the address is never blocked; empty if it may be.
    std::string Protection(uint32_t address) const;
    int Put(uint32_t address, int64_t until, int64_t now);
    int Renew(const std::vector<kdi_block_s>& blocks);
    int NoteResult(int error);
    bool HasRoomFor(uint32_t address) const;
    int Full();
    void Adopt(int64_t now);
    std::vector<kdi_block_s> Missing(const std::vector<SetElement>& elements, int64_t now) const;

    const HostAddresses& m_Host;
    const NetworkList& m_Allowed;
    BlockSet* m_Set;
    Messages& m_Messages;
    Blocks m_Known;
    std::string m_Error;
    bool m_Changed = false;
    bool m_SetFails = false;  // and people were told
    int64_t m_LastCheck = 0;
    uint64_t m_Accepted = 0;
    uint64_t m_Refused = 0;
    uint64_t m_Failed = 0;
    uint64_t m_Repaired = 0;
};

}  // namespace Kdi
