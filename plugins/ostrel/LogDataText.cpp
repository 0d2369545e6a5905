// LogData: the text of a record.

#include <wx/debug.h>

#include <algorithm>
#include <cstring>

#include "ConfigUtils.h"
#include "LogData.h"
#include "RecordText.h"
#include "Trace.h"
#include "WorkingRecord.h"

namespace OSTREL {

bool LogData::BinaryToAscii(const void* entry, std::string& text, long long& firstTime,
                            long long& lastTime) {
    const WorkingRecord& record = *static_cast<const WorkingRecord*>(entry);
    const velm_log_entry_s& fixed = record.Entry();
    firstTime = FirstTimeOf(fixed);
    lastTime = LastTimeOf(fixed);

    char LogBuf[1024];
    TextCursor columns(LogBuf, sizeof LogBuf);
    AppendColumns(columns, fixed, InterfaceId(static_cast<int>(fixed.log_if_index)));
    columns.Terminate();
    wxASSERT(strlen(LogBuf) < sizeof(LogBuf) - 1);

    // The dumps do not pass through the buffer, so they are never cut.
    const size_t packetDataLength = fixed.log_packet_data_len;
    const size_t logDataLength = fixed.log_data_len;
    text.reserve(columns.Length() + 2 * packetDataLength + 2 * logDataLength + 2);
    text.assign(columns.Text());
    if (fixed.log_dpi_flags & LOG_DPI_PACKET_DATA) {
        AppendHexDump(text, record.PacketData(), WorkingRecord::kPacketRoom, packetDataLength);
    }
    text += ", ";
    AppendHexDump(text, record.LogDataBlock(), logDataLength, logDataLength);
    OSTREL_TRACE(s_Trace, "%.200s", text);
    return true;
}

// Maps the driver's interface index. The last answer is kept, so that a run of entries of one
// interface costs one look into the configuration; an index that is not configured goes on showing
// the ID of the one before it.
int LogData::InterfaceId(int driverIndex) {
    if (driverIndex == m_LastInterfaceIndex) return m_LastInterfaceId;
    m_LastInterfaceIndex = driverIndex;
    if (m_pConfigUtils == nullptr) return m_LastInterfaceId;
    const bool found = m_pConfigUtils->getInterfaceID(driverIndex, m_LastInterfaceId);
    OSTREL_TRACE(s_Trace,
                 "getInterfaceId returned %d, interfaceIndex was %d, Last interface ID was %d",
                 found, driverIndex, m_LastInterfaceId);
    return m_LastInterfaceId;
}

}  // namespace OSTREL
