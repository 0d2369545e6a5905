#include "LiveBlocks.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "SystemTime.h"

namespace Kdi {

namespace {

// After a change the set is looked at no sooner than this behind the last time, since other
// programs may change their tables often; without one, now and then, in case a change went
// unnoticed.
constexpr int64_t SOON = 1'000'000;
constexpr int64_t NOW_AND_THEN = 60'000'000;
// The kernel tells whole seconds, and its clock is not ours.
constexpr uint32_t TOLERANCE_MSEC = 2000;

std::string AddressText(uint32_t address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

}  // namespace

LiveBlocks::LiveBlocks(const HostAddresses& host, const NetworkList& allowed, BlockSet* set,
                       Messages& messages)
    : m_Host(host), m_Allowed(allowed), m_Set(set), m_Messages(messages) {
    const int64_t now = SteadyUsec();
    m_LastCheck = now;
    if (m_Set) Adopt(now);
}

std::string LiveBlocks::Protection(uint32_t address) const {
    uint8_t bytes[4];
    std::memcpy(bytes, &address, sizeof bytes);
    const char* reason = nullptr;
    if (bytes[0] == 127) {
        reason = "it is a loopback address";
    } else if (bytes[0] == 0) {  // those who ask for an address send from there
        reason = "it is no host's address";
    } else if (m_Host.IsOwn(4, bytes)) {
        reason = "it is this host's own address";
    } else if (m_Allowed.Contains(4, bytes)) {
        reason = "it is on the allow list";
    }
    return reason ? AddressText(address) + " is never blocked: " + reason : std::string();
}

// Notes what came of a change of the set, and tells people when that is news.
int LiveBlocks::NoteResult(int error) {
    if (error != 0) {
        m_Error = m_Set->Error();
        if (!m_SetFails) m_Messages.Put("blocks do not reach the kernel: " + m_Error);
    } else if (m_SetFails) {
        m_Messages.Put(std::string("blocks reach the kernel again: ") + BlockSet::NAME);
    }
    m_SetFails = error != 0;
    return error;
}

int LiveBlocks::Renew(const std::vector<kdi_block_s>& blocks) {
    return m_Set ? NoteResult(m_Set->Renew(blocks)) : 0;
}

// A new address is added only: renewing makes the kernel tell of a deletion, and the set would be
// looked at for each.
int LiveBlocks::Put(uint32_t address, int64_t until, int64_t now) {
    if (!HasRoomFor(address)) return Full();
    const kdi_block_s block{address, RemainingMsec(until, now)};
    if (m_Known.Until(address) != 0) return Renew({block});
    return m_Set ? NoteResult(m_Set->Add({block})) : 0;
}

int LiveBlocks::Block(uint32_t address, uint32_t msec, int64_t now) {
    m_Error = Protection(address);
    if (!m_Error.empty()) {
        ++m_Refused;
        return ECANCELED;
    }
    if (msec == 0) {  // to the kernel that would mean for good
        m_Error = AddressText(address) + " cannot be blocked for no time";
        return EINVAL;
    }
    m_Known.Expire(now);
    const int64_t until = std::max(m_Known.Until(address), now + int64_t{msec} * 1000);
    const int error = Put(address, until, now);
    // A set that is not there yet gets the block when it comes.
    if (error == 0 || error == ENOENT) m_Known.Block(address, until);
    ++(error == 0 ? m_Accepted : m_Failed);
    return error;
}

bool LiveBlocks::HasRoomFor(uint32_t address) const {
    return m_Known.Until(address) != 0 || m_Known.Size() < CAPACITY;
}

int LiveBlocks::Full() {
    m_Error = std::to_string(CAPACITY) + " addresses are blocked, which is the most";
    return ENOSPC;
}

int LiveBlocks::Unblock(uint32_t address, int64_t now) {
    m_Error.clear();
    if (!m_Known.IsBlocked(address, now)) {
        m_Error = AddressText(address) + " is not blocked";
        return ENOENT;
    }
    const int error = m_Set ? NoteResult(m_Set->Remove(address)) : 0;
    // Where there is no set, nothing is blocked.
    if (error != 0 && error != ENOENT) return error;
    m_Known.Unblock(address, now);
    return 0;
}

int LiveBlocks::Restore(const kdi_block_s* blocks, unsigned int count, int64_t now) {
    m_Error.clear();
    bool fits = true;
    m_Known.Expire(now);
    for (unsigned int i = 0; i < count; ++i) {
        if (!Protection(blocks[i].ipv4_addr).empty()) {
            ++m_Refused;
        } else if (HasRoomFor(blocks[i].ipv4_addr)) {
            m_Known.Restore(&blocks[i], 1, now);
        } else {
            fits = false;
            ++m_Failed;
        }
    }
    const int error = Renew(m_Known.List(now));
    return error == 0 && !fits ? Full() : error;
}

// What an agent before this one blocked is blocked still. A set that is not there holds nothing.
void LiveBlocks::Adopt(int64_t now) {
    std::vector<SetElement> elements;
    if (NoteResult(m_Set->Read(elements)) != 0) return;
    for (const SetElement& element : elements) {
        if (element.expires_sec == UINT32_MAX || element.expires_sec == 0) continue;
        m_Known.Block(element.address, now + int64_t{element.expires_sec} * 1000000);
    }
    NoteHostAddresses(now);
}

void LiveBlocks::NoteHostAddresses(int64_t now) {
    for (const kdi_block_s& block : m_Known.List(now)) {
        const std::string protection = Protection(block.ipv4_addr);
        if (protection.empty()) continue;
        if (Unblock(block.ipv4_addr, now) == 0) m_Messages.Put("block lifted: " + protection);
    }
}

int64_t LiveBlocks::NextCheck() const {
    return m_LastCheck + (m_Changed ? SOON : NOW_AND_THEN);
}

// Of the known blocks those that the set lacks, or lets go too early.
std::vector<kdi_block_s> LiveBlocks::Missing(const std::vector<SetElement>& elements,
                                             int64_t now) const {
    std::unordered_map<uint32_t, uint32_t> expires;
    for (const SetElement& element : elements)
        expires[element.address] = element.expires_sec;
    std::vector<kdi_block_s> missing;
    for (const kdi_block_s& block : m_Known.List(now)) {
        const auto found = expires.find(block.ipv4_addr);
        const uint64_t held = found == expires.end() ? 0 : uint64_t{found->second} * 1000;
        const bool isThere = found != expires.end();
        if (!isThere || held + TOLERANCE_MSEC < block.remaining_msec) missing.push_back(block);
    }
    return missing;
}

void LiveBlocks::Check(int64_t now) {
    m_LastCheck = now;
    m_Changed = false;
    m_Known.Expire(now);
    if (!m_Set || (m_Known.Empty() && !m_SetFails)) return;
    std::vector<SetElement> elements;
    const int error = m_Set->Read(elements);
    const std::vector<kdi_block_s> missing =
        error == 0 ? Missing(elements, now) : std::vector<kdi_block_s>();
    // A set that can be read need not take what is missing there.
    if (missing.empty()) NoteResult(error);
    if (missing.empty() || Renew(missing) != 0) return;
    m_Repaired += missing.size();
    m_Messages.Put("blocks that were missing in " + std::string(BlockSet::NAME) +
                   " and were put back: " + std::to_string(missing.size()));
}

void LiveBlocks::GetStatistics(int64_t now, kdi_statistics_s& statistics) const {
    statistics.blocks_now = m_Known.List(now).size();
    statistics.blocks_accepted = m_Accepted;
    statistics.blocks_refused = m_Refused;
    statistics.blocks_failed = m_Failed;
    statistics.blocks_repaired = m_Repaired;
}

}  // namespace Kdi
