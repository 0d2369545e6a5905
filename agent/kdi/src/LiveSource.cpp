#include "LiveSource.h"

#include <linux/netfilter/nfnetlink.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "ConnectionEnd.h"
#include "SystemTime.h"

namespace Kdi {

namespace {

constexpr unsigned int RECEIVE_BUFFER = 8 * 1024 * 1024;  // bytes
// Losses are told no more often than this.
constexpr int64_t BETWEEN_LOSSES = 10'000'000;  // microseconds

// The ruleset's counters are read no more often than this.
constexpr int64_t BETWEEN_COUNTERS = 1'000'000;  // microseconds

enum Number : uint32_t { WAKE_UP, HOST, RULESET, PACKETS, CONNECTIONS };

unsigned int BufferSize(const LiveSource::Options& options) {
    return options.receiveBuffer ? options.receiveBuffer : RECEIVE_BUFFER;
}

// Joining takes the privilege that all the rest takes too, so a process without it learns so here.
NetlinkSocket ConnectionSocket(const LiveSource::Options& options) {
    NetlinkSocket socket(NETLINK_NETFILTER, BufferSize(options));
    socket.Join(NFNLGRP_CONNTRACK_DESTROY);
    return socket;
}

std::string Describe(const LiveSource::Options& options) {
    return "packets that rules log to group " + std::to_string(options.group) +
           ", ends of tracked connections; blocks " +
           (options.dryRun ? "are recorded only" : std::string("go into ") + BlockSet::NAME);
}

}  // namespace

LiveSource::LiveSource(const Options& options)
    : m_Options(options),
      m_Connections(ConnectionSocket(options)),
      m_Log(options.group, BufferSize(options)),
      m_Monitor(options.dryRun ? nullptr : std::make_unique<RulesetMonitor>()),
      m_Set(options.dryRun ? nullptr : std::make_unique<BlockSet>(m_Nftables)),
      m_Blocks(m_Host, m_Options.allowed, m_Set.get(), m_Messages) {
    m_Poller.Add(m_WakeUp.Descriptor(), WAKE_UP);
    m_Poller.Add(m_Host.Descriptor(), HOST);
    m_Poller.Add(m_Log.Socket().Descriptor(), PACKETS);
    m_Poller.Add(m_Connections.Descriptor(), CONNECTIONS);
    if (m_Monitor) m_Poller.Add(m_Monitor->Descriptor(), RULESET);
    m_Description = Describe(options);
    if (AreConnectionEventsOff())
        m_Messages.Put("ends of connections are not told: nf_conntrack_events is 0");
}

// What was received is given out first; then both sockets are read in turn, so that a flood of
// packets does not hide the ends of connections.
kdi_next_result LiveSource::Next(unsigned int timeoutMsec, velm_log_entry_s& entry) {
    const int64_t deadline = SteadyUsec() + int64_t{timeoutMsec} * 1000;
    for (bool waited = false;; waited = true) {
        if (TakeEntry(entry)) return KDI_ENTRY;
        const int64_t now = SteadyUsec();
        Maintain(now);
        if (waited && now >= deadline) return KDI_TIMEOUT;
        Poller::Ready ready;
        if (!m_Poller.Wait(WaitMsec(now, deadline), ready) || !Serve(ready)) return KDI_TIMEOUT;
    }
}

bool LiveSource::TakeEntry(velm_log_entry_s& entry) {
    while (const nlmsghdr* message = m_Log.Socket().NextMessage()) {
        if (LogGroup::IsPacket(*message) && TakePacket(*message, entry)) return true;
    }
    while (const nlmsghdr* message = m_Connections.NextMessage()) {
        if (IsConnectionEnd(*message) && TakeConnectionEnd(*message, entry)) return true;
    }
    return false;
}

bool LiveSource::TakePacket(const nlmsghdr& message, velm_log_entry_s& entry) {
    std::optional<uint32_t> sequence;
    const bool readable = ReadLogMessage(message, m_ReceivedAt, m_Packet, sequence);
    if (sequence) m_Statistics.lost += m_Sequence.Note(*sequence);
    ++m_Statistics.packets;
    if (!readable) {
        ++m_Statistics.unreadable;
        return false;
    }
    if (m_Packet.foreignPrefix) ++m_Statistics.foreign_prefixes;
    NoteTime(m_Packet.record.last);
    Deliver(m_Packet.record, m_Packet.Device(), entry);
    return true;
}

void LiveSource::NoteTime(int64_t usec) {
    if (m_Statistics.first_usec < 0) m_Statistics.first_usec = usec;
    m_Statistics.last_usec = usec;
}

bool LiveSource::TakeConnectionEnd(const nlmsghdr& message, velm_log_entry_s& entry) {
    EndedConnection connection;
    uint32_t device = 0;
    if (!ReadConnectionEnd(message, connection)) {
        ++m_Statistics.unreadable;
        return false;
    }
    if (!ToFlowEnd(connection, m_Host, m_ReceivedAt, m_End, device)) return false;
    ++m_Statistics.connection_ends;
    Deliver(m_End, device, entry);
    return true;
}

void LiveSource::Deliver(const Record& record, uint32_t device, velm_log_entry_s& entry) {
    FillEntry(record, m_Host.Hardware(device), entry);
    entry.log_if_index = device;
    ++m_Statistics.entries;
}

// Rounded up, so that what is waited for is due when the waiting ends.
int LiveSource::WaitMsec(int64_t now, int64_t deadline) const {
    const int64_t until = m_Options.dryRun ? deadline : std::min(deadline, m_Blocks.NextCheck());
    return static_cast<int>(std::clamp<int64_t>((until - now + 999) / 1000, 0, INT_MAX));
}

// False if the waiting is to end now.
bool LiveSource::Serve(const Poller::Ready& ready) {
    if (ready.Has(HOST)) NoteHostChanges();
    if (ready.Has(RULESET) && m_Monitor->Changed()) m_Blocks.NoteChange();
    if (ready.Has(PACKETS)) Receive(m_Log.Socket());
    if (ready.Has(CONNECTIONS)) Receive(m_Connections);
    return !(ready.Has(WAKE_UP) && m_WakeUp.Take());
}

void LiveSource::Receive(NetlinkSocket& socket) {
    if (socket.Receive() == NetlinkSocket::Received::Overrun) ++m_Statistics.overruns;
    m_ReceivedAt = WallUsec();
}

void LiveSource::NoteHostChanges() {
    if (m_Host.Refresh()) m_Blocks.NoteHostAddresses(SteadyUsec());
}

void LiveSource::Maintain(int64_t now) {
    if (!m_Options.dryRun && now >= m_Blocks.NextCheck()) m_Blocks.Check(now);
    TellLosses(now);
}

void LiveSource::TellLosses(int64_t now) {
    const uint64_t lost = m_Statistics.lost - m_ToldLost;
    const uint64_t overruns = m_Statistics.overruns - m_ToldOverruns;
    if ((lost == 0 && overruns == 0) || now - m_ToldAt < BETWEEN_LOSSES) return;
    m_Messages.Put("group " + std::to_string(m_Options.group) + ": " + std::to_string(lost) +
                   " packets were lost, a socket's buffer was full " + std::to_string(overruns) +
                   " times");
    m_ToldLost = m_Statistics.lost;
    m_ToldOverruns = m_Statistics.overruns;
    m_ToldAt = now;
}

// Takes over the words of what the blocks' keeper did.
int LiveSource::Keep(int error) {
    if (error != 0) m_Error = m_Blocks.Error();
    return error;
}

// An address that the host got just now counts.
int LiveSource::Block(const kdi_blacklist_s& record) {
    NoteHostChanges();
    return Keep(m_Blocks.Block(record.bl_ipv4_addr, record.bl_duration_msec, SteadyUsec()));
}

int LiveSource::Unblock(uint32_t address) {
    return Keep(m_Blocks.Unblock(address, SteadyUsec()));
}

int LiveSource::RestoreBlocks(const kdi_block_s* blocks, unsigned int count) {
    NoteHostChanges();
    return Keep(m_Blocks.Restore(blocks, count, SteadyUsec()));
}

std::vector<kdi_block_s> LiveSource::ListBlocks() {
    return m_Blocks.List(SteadyUsec());
}

// A ruleset of another making has no such counters. Without the privilege the library complains on
// standard error, so it is not asked again.
void LiveSource::ReadCounters(int64_t now) {
    if (!m_MayReadCounters || now - m_CountersReadAt < BETWEEN_COUNTERS) return;
    m_CountersReadAt = now;
    const int error = m_Nftables.Run("list counters table inet velm\n");
    m_MayReadCounters = error != EPERM;
    if (error != 0) return;
    const auto counters = ParseCounterListing(m_Nftables.Output());
    const auto read = [&](const char* name, uint64_t& count) {
        const auto found = counters.find(name);
        if (found != counters.end()) count = found->second;
    };
    read("blocked", m_Statistics.dropped);
    read("unlogged", m_Statistics.unlogged);
}

void LiveSource::GetStatistics(kdi_statistics_s& statistics) {
    const int64_t now = SteadyUsec();
    ReadCounters(now);
    statistics = m_Statistics;
    m_Blocks.GetStatistics(now, statistics);
}

}  // namespace Kdi
