#include "CaptureSource.h"

#include <algorithm>
#include <cerrno>

#include "Survey.h"

namespace Kdi {

bool CaptureSource::ParseOptions(const kdi_open_options_s& options) {
    if (options.local && !m_Local.emplace().Parse(options.local, "local address", m_Error))
        return false;
    return !options.allow || m_Allowed.emplace().Parse(options.allow, m_Error);
}

bool CaptureSource::Open(const kdi_open_options_s& options) {
    if (!ParseOptions(options)) return false;
    if (m_File.Open() && SurveyFile()) return true;
    m_Error = m_File.Error();
    return false;
}

bool CaptureSource::SurveyFile() {
    Survey survey(m_File.Link(), m_Local ? &*m_Local : nullptr, m_Book);
    while (m_File.Next()) {
        if (m_File.Count() == 1) m_FirstTime = m_File.TimeUsec();
        survey.Add(ParseFrame(m_File.Link(), m_File.Bytes(), m_File.Captured(), m_File.WireLen()));
    }
    m_Surveyed = m_File.Count();
    m_Statistics.total_packets = m_Surveyed;
    m_SurveyError = m_File.Error();
    m_Host.emplace(survey.Conclude());
    if (m_Local) m_Host->Add(*m_Local);
    if (m_Allowed) m_Host->SetAllowed(*m_Allowed);
    m_Description = m_Host->Describe();
    m_Firewall.emplace(*m_Host, m_Book);
    return m_File.Rewind();
}

// Reads no further than the survey did: a file that grows meanwhile ends where it ended then.
bool CaptureSource::ReadPacket() {
    if (m_File.Count() == m_Surveyed || !m_File.Next()) return false;
    NotePacket();
    m_PacketWaits = true;
    return true;
}

void CaptureSource::NotePacket() {
    m_Packet.time = m_File.TimeUsec();
    m_Packet.number = m_File.Count();
    ++m_Statistics.packets;
    if (m_Statistics.first_usec < 0) m_Statistics.first_usec = m_Packet.time;
    m_Statistics.last_usec = m_Packet.time;
}

bool CaptureSource::JudgePacket() {
    m_PacketWaits = false;
    const Frame frame =
        ParseFrame(m_File.Link(), m_File.Bytes(), m_File.Captured(), m_File.WireLen());
    if (frame.family == 0) return false;
    Identify(frame, m_Book, m_Packet);
    if (frame.family == 4 && !m_Blocks.Empty() &&
        m_Blocks.IsBlocked(m_Packet.source.value, m_Packet.time)) {
        ++m_Statistics.dropped;
        return false;
    }
    return m_Firewall->Judge(m_Packet, m_Record);
}

kdi_next_result CaptureSource::Deliver(velm_log_entry_s& entry) {
    const auto& interface = m_Host->Interface();
    FillEntry(m_Record, interface ? interface->data() : nullptr, entry);
    ++m_Statistics.entries;
    return KDI_ENTRY;
}

kdi_next_result CaptureSource::Next(unsigned int, velm_log_entry_s& entry) {
    while (m_PacketWaits || ReadPacket()) {
        m_Firewall->SetClock(Now());
        if (m_Firewall->NextOverdue(m_Record)) return Deliver(entry);
        if (m_Packet.time >= m_HoldBack) return KDI_TIMEOUT;
        if (JudgePacket()) return Deliver(entry);
    }
    if (m_Firewall->NextUnfinished(m_Record)) return Deliver(entry);
    return Finish();
}

kdi_next_result CaptureSource::Finish() {
    m_Error = m_File.Error().empty() ? m_SurveyError : m_File.Error();
    return m_Error.empty() ? KDI_END : KDI_FAILED;
}

// Time is that of the last packet, but not beyond the moment up to which packets are wanted; before
// the second reading it stands at the first packet.
int64_t CaptureSource::Now() const {
    if (m_Statistics.packets == 0) return m_FirstTime;
    return std::min(m_Statistics.last_usec, m_HoldBack);
}

int CaptureSource::Block(const kdi_blacklist_s& record) {
    m_Blocks.Block(record.bl_ipv4_addr, Now() + int64_t{record.bl_duration_msec} * 1000);
    return 0;
}

int CaptureSource::Unblock(uint32_t address) {
    return m_Blocks.Unblock(address, Now()) ? 0 : ENOENT;
}

int CaptureSource::RestoreBlocks(const kdi_block_s* blocks, unsigned int count) {
    m_Blocks.Restore(blocks, count, Now());
    return 0;
}

}  // namespace Kdi
