#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BlockSet.h"
#include "CaptureOptions.h"
#include "HostAddresses.h"
#include "LiveBlocks.h"
#include "LogGroup.h"
#include "LogMessage.h"
#include "Messages.h"
#include "NetlinkSocket.h"
#include "Nftables.h"
#include "Poller.h"
#include "RulesetMonitor.h"
#include "Source.h"
#include "WakeUp.h"

namespace Kdi {

// What the kernel's firewall reports: the packets that rules log to a group, and the ends of
// tracked connections. Blocks go into the kernel's set.
class LiveSource : public Source {
public:
    struct Options {
        uint16_t group = 0;
        NetworkList allowed;
        bool dryRun = false;
        unsigned int receiveBuffer = 0;  // bytes of each socket; 0: 8 MiB
    };

    // Throws std::system_error.
    explicit LiveSource(const Options& options);

    kdi_next_result Next(unsigned int timeoutMsec, velm_log_entry_s& entry) override;
    int Block(const kdi_blacklist_s& record) override;
    void GetStatistics(kdi_statistics_s& statistics) override;
    std::vector<kdi_block_s> ListBlocks() override;
    int Unblock(uint32_t address) override;
    int RestoreBlocks(const kdi_block_s* blocks, unsigned int count) override;
    void Wake() override { m_WakeUp.Raise(); }
    int Descriptor() const override { return m_Poller.Descriptor(); }
    bool TakeMessage(std::string& text) override { return m_Messages.Take(text); }

private:
    static constexpr int64_t LONG_AGO = INT64_MIN / 2;  // of the steady clock

    bool TakeEntry(velm_log_entry_s& entry);
    bool TakePacket(const nlmsghdr& message, velm_log_entry_s& entry);
    bool TakeConnectionEnd(const nlmsghdr& message, velm_log_entry_s& entry);
    void Deliver(const Record& record, uint32_t device, velm_log_entry_s& entry);
    void NoteTime(int64_t usec);

    int WaitMsec(int64_t now, int64_t deadline) const;
    bool Serve(const Poller::Ready& ready);
    void Receive(NetlinkSocket& socket);
    void NoteHostChanges();
    void Maintain(int64_t now);
    void TellLosses(int64_t now);
    void ReadCounters(int64_t now);
    int Keep(int error);

    Options m_Options;
    Messages m_Messages;
    WakeUp m_WakeUp;
    HostAddresses m_Host;
    NetlinkSocket m_Connections;
    LogGroup m_Log;
    std::unique_ptr<RulesetMonitor> m_Monitor;  // none in a dry run, as of the set
    Nftables m_Nftables;
    std::unique_ptr<BlockSet> m_Set;
    LiveBlocks m_Blocks;
    Poller m_Poller;

    int64_t m_ReceivedAt = 0;  // microseconds since the epoch
    SequenceCounter m_Sequence;
    LoggedPacket m_Packet;
    Record m_End;
    kdi_statistics_s m_Statistics;
    uint64_t m_ToldLost = 0;
    uint64_t m_ToldOverruns = 0;
    int64_t m_ToldAt = LONG_AGO;
    int64_t m_CountersReadAt = LONG_AGO;
    bool m_MayReadCounters = true;
};

}  // namespace Kdi
