#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "Blacklist.h"
#include "CaptureFile.h"
#include "CaptureOptions.h"
#include "Firewall.h"
#include "LocalHost.h"
#include "Source.h"

namespace Kdi {

// Plays the driver of a host behind its firewall from a capture file, in two readings: one that
// finds out whose capture it is, one that judges its packets.
class CaptureSource : public Source {
public:
    explicit CaptureSource(const std::string& path) : m_File(path) {}

    // False, with the reason in Error(), if an option or the file is bad. A file that is damaged
    // further on opens, and fails where it is damaged.
    bool Open(const kdi_open_options_s& options);

    kdi_next_result Next(unsigned int timeoutMsec, velm_log_entry_s& entry) override;
    void HoldBack(int64_t usec) override { m_HoldBack = usec; }
    int Block(const kdi_blacklist_s& record) override;
    void GetStatistics(kdi_statistics_s& statistics) override { statistics = m_Statistics; }
    std::vector<kdi_block_s> ListBlocks() override { return m_Blocks.List(Now()); }
    int Unblock(uint32_t address) override;
    int RestoreBlocks(const kdi_block_s* blocks, unsigned int count) override;

private:
    int64_t Now() const;
    bool ParseOptions(const kdi_open_options_s& options);
    bool SurveyFile();
    bool ReadPacket();
    void NotePacket();
    bool JudgePacket();
    kdi_next_result Finish();
    kdi_next_result Deliver(velm_log_entry_s& entry);

    CaptureFile m_File;
    AddressBook m_Book;
    std::optional<NetworkList> m_Local;
    std::optional<ServiceList> m_Allowed;
    std::optional<LocalHost> m_Host;
    std::optional<Firewall> m_Firewall;
    Blocks m_Blocks;
    int64_t m_HoldBack = std::numeric_limits<int64_t>::max();  // microseconds since the epoch
    Packet m_Packet;
    Record m_Record;
    bool m_PacketWaits = false;  // read, but what time brings forth before it comes first
    int64_t m_FirstTime = 0;     // of the first packet, from the first reading
    uint64_t m_Surveyed = 0;     // packets that the first reading found
    std::string m_SurveyError;   // where it had to stop
    kdi_statistics_s m_Statistics;
};

}  // namespace Kdi
