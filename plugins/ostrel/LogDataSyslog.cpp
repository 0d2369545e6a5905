// LogData: one entry as the body of a syslog message.

#include <wx/debug.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "ConfigUtils.h"
#include "LogData.h"
#include "RecordText.h"
#include "SyslogText.h"
#include "Trace.h"
#include "WorkingRecord.h"
#include "policy/PacketFilter.h"
#include "policy/PayloadFilter.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

constexpr size_t kMaxName = 128;
constexpr size_t kMaxAction = 32;
constexpr size_t kMaxAddress = 24;
constexpr size_t kMaxBinaryNote = 128;
constexpr size_t kInterfaceAddressOffset = offsetof(velm_log_entry_s, log_if_addr);
constexpr int kDefaultSeverity = 5;

// A CEF event number and severity.
struct CefClass {
    int number;
    int severity;
};

bool Has(const velm_log_entry_s& entry, uint8_t flag) {
    return (entry.log_flags & flag) != 0;
}

bool IsDetectOnly(const velm_log_entry_s& entry) {
    return (entry.log_action & LOG_ACTION_DETECT_ONLY) != 0;
}

int ActionOf(const velm_log_entry_s& entry) {
    return entry.log_action & ~LOG_ACTION_DETECT_ONLY;
}

wxString Underscored(wxString text) {
    text.Replace(" ", "_");
    return text;
}

// Appends as printf would: up to a zero byte, and at most `most` bytes.
void PutBounded(TextCursor& text, const char* value, size_t most = static_cast<size_t>(-1)) {
    text.Put(std::string_view(value, strnlen(value, most)));
}

void PutUtf8(TextCursor& text, const wxString& value, size_t most = static_cast<size_t>(-1)) {
    PutBounded(text, value.utf8_str(), most);
}

std::string HexText(const void* bytes, size_t length) {
    const std::string raw(static_cast<const char*>(bytes), length);
    return VelmCore::toHexString(raw, false).ToStdString();
}

void PutHardwareAddress(TextCursor& text, const uint8_t (&address)[6]) {
    PutBounded(text, HexText(address, sizeof address).c_str(), kMaxAddress);
}

int CefSeverity(int filterSeverity) {
    switch (filterSeverity) {
        case 1:
            return 3;
        case 2:
            return 6;
        case 3:
            return 8;
        case 4:
            return 10;
    }
    return 9;
}

CefClass PacketCefClass(const velm_log_entry_s& entry, int filterAction) {
    if (entry.log_filter_id == 0) return {entry.log_reason, kDefaultSeverity};
    if (filterAction == CPacketFilter::FilterActionLog) return {20, 0};
    return {21, kDefaultSeverity};
}

}  // namespace

// One message under construction.
struct LogData::SyslogMessage {
    SyslogMessage(const WorkingRecord& r, int f, bool c, char* buffer, size_t size)
        : record(r), entry(r.Entry()), format(f), cef(c), body(buffer, size) {}

    const WorkingRecord& record;
    const velm_log_entry_s& entry;
    const int format;
    const bool cef;
    TextCursor body;

    std::string_view Key(std::string_view plain, std::string_view extension) const {
        return cef ? extension : plain;
    }
};

bool LogData::SyslogFormat(const void* entry, std::string& out) {
    m_Syslogger.UpdateConfig();
    const bool cef = m_Syslogger.GetSyslogFormatCEF();
    const int format = m_Syslogger.m_Format;
    OSTREL_TRACE(s_Trace, "SyslogFormat CEF: %d, format: %d", cef, format);
    if (m_pConfigUtils == nullptr) {
        OSTREL_TRACE(s_Trace, "Cannot do SyslogFormat when ConfigUtils is NULL");
        return false;
    }
    char LogBuf[65536];
    const WorkingRecord& record = *static_cast<const WorkingRecord*>(entry);
    SyslogMessage message(record, format, cef, LogBuf, sizeof LogBuf);
    if (record.Entry().log_reason < 0) {
        AppendPayloadLog(message);
        message.body.Terminate();
        wxASSERT(strlen(LogBuf) < sizeof(LogBuf) - 1);
    } else {
        AppendPacketLog(message);
    }
    out.assign(message.body.Text());
    if (format >= kFormatExtended) AppendPacketData(message, out);
    return true;
}

void LogData::AppendPacketLog(SyslogMessage& message) {
    const velm_log_entry_s& entry = message.entry;
    int filterAction = CPacketFilter::FilterActionDeny;
    const wxString name = PacketLogName(message, filterAction);
    if (message.cef) {
        const CefClass cefClass = PacketCefClass(entry, filterAction);
        AppendCefStart(message, VelmCore::toString(cefClass.number), name, cefClass.severity);
    } else {
        AppendPlainStart(message, name, {});
    }
    if (message.format != kFormatNoAction) {
        wxString action = IsDetectOnly(entry) ? "IDS:" : "";
        action += CPacketFilter::FilterActionToString(
            static_cast<CPacketFilter::_FilterAction>(filterAction));
        AppendItem(message.body, "act", {});
        PutUtf8(message.body,
                message.format == kFormatUpperCase ? Underscored(action)
                                                   : m_Syslogger.EscapeCEFExtension(action),
                kMaxAction);
    }
    AppendSyslogBody(message, !Has(entry, LOG_FLAG_OUTGOING));
}

// The name of a packet log, and the action that it shows. A filter's configured name never reaches
// the message: its number stands in its place, and nothing at all for a filter that is not
// configured.
wxString LogData::PacketLogName(const SyslogMessage& message, int& filterAction) {
    const velm_log_entry_s& entry = message.entry;
    wxString name;
    if (entry.log_filter_id != 0) {
        const int id = static_cast<int>(entry.log_filter_id);
        if (m_pConfigUtils->getPacketFilterInfo(id, name, filterAction)) {
            name = VelmCore::toString(id);
        }
        if (!message.cef) name = "PKT:" + name;
    } else if (entry.log_reason != 0) {
        name = CPacketFilter::LogStatusToString(entry.log_reason);
    }
    if (entry.log_action != 0) {
        filterAction = ActionOf(entry) == LOG_ACTION_DENY ? CPacketFilter::FilterActionDeny
                                                          : CPacketFilter::FilterActionLog;
    }
    return name;
}

void LogData::AppendPayloadLog(SyslogMessage& message) {
    const velm_log_entry_s& entry = message.entry;
    wxString name;
    wxString identifier;
    bool incoming = true;
    int filterSeverity = 0;
    if (entry.log_filter_id == 0) {
        name = CPayloadFilter::LogStatusToString(entry.log_reason);
    } else {
        const int id = static_cast<int>(entry.log_filter_id);
        if (!m_pConfigUtils->getPayloadFilterInfo(id, name, incoming, filterSeverity, identifier)) {
            name = VelmCore::toString(id);
        }
        if (!message.cef) name = "PLD:" + name;
    }
    if (!message.cef) {
        AppendPlainStart(message, name, Has(entry, LOG_FLAG_FORWARD) ? " FWD" : " REV");
    } else if (entry.log_filter_id == 0) {
        AppendCefStart(message, VelmCore::toString(std::abs(int{entry.log_reason})), name,
                       kDefaultSeverity);
    } else {
        if (identifier.empty()) identifier = "10";
        AppendCefStart(message, identifier, name, CefSeverity(filterSeverity));
    }
    // The direction that the filter is configured for, not the packet's own.
    AppendSyslogBody(message, incoming);
    AppendPayloadItems(message);
}

void LogData::AppendCefStart(SyslogMessage& message, const wxString& identifier,
                             const wxString& name, int severity) {
    const unsigned int size = static_cast<unsigned int>(message.body.Size());
    m_Syslogger.AppendHeaderCEF(message.body.Terminate(), size);
    message.body.Resume();
    PutUtf8(message.body, m_Syslogger.EscapeCEFPrefix(identifier));
    message.body.Put('|');
    PutUtf8(message.body, m_Syslogger.EscapeCEFPrefix(name));
    message.body.Put('|');
    message.body.PutNumber(severity);
    message.body.Put('|');
    m_Syslogger.AppendHostIdentityCEF(message.format, message.body.Terminate(), size);
    message.body.Resume();
}

void LogData::AppendPlainStart(SyslogMessage& message, const wxString& name,
                               std::string_view direction) {
    message.body.Put("REASON=");
    PutBounded(message.body, Underscored(name).ToAscii(), kMaxName);
    message.body.Put(direction);
    AppendHostIdentity(message.body);
}

void LogData::AppendHostIdentity(TextCursor& text) {
    if (m_pConfigUtils == nullptr) {
        OSTREL_TRACE(s_Trace, "Cannot append host identify ConfigUtils is NULL");
        return;
    }
    wxString hostname;
    int hostId = 0;
    m_pConfigUtils->getAgentConfigurationHostIdentity(hostname, hostId);
    AppendNumberItem(text, "HOSTID", hostId);
}

// What both kinds of log have in common.
void LogData::AppendSyslogBody(SyslogMessage& message, bool incoming) {
    const velm_log_entry_s& entry = message.entry;
    const int format = message.format;
    if (Has(entry, LOG_FLAG_ETH)) {
        if (message.cef) {
            AppendInterfaceInfoCEF(message);
        } else {
            AppendInterfaceInfoSyslog(message, incoming);
        }
    }
    AppendIPsSyslog(format, message.body, entry);
    AppendLengthSyslog(message.body, entry.log_packet_len & 0xFFFF,
                       message.Key("LEN", Has(entry, LOG_FLAG_OUTGOING) ? "out" : "in"));
    AppendFragFlagsSyslog(format, message.body, entry);
    if (ProtocolOf(entry) != kNoProtocol) AppendProtocolSyslog(format, message.body, entry);
    AppendPortsSyslog(format, message.body, entry);
    AppendTCPFlagsSyslog(format, message.body, entry);
    AppendICMPSyslog(format, message.body, entry);
    AppendRepeatCountSyslog(format, message.body, entry);
}

void LogData::AppendInterfaceInfoCEF(SyslogMessage& message) {
    AppendItem(message.body, "dmac", {});
    PutHardwareAddress(message.body, message.entry.log_eth.eth_dest);
    AppendItem(message.body, "smac", {});
    PutHardwareAddress(message.body, message.entry.log_eth.eth_src);
    if (message.format < kFormatExtended) return;
    AppendItem(message.body, "ZelloraFrameType", {});
    AppendFrameType(message.body, message.entry);
}

void LogData::AppendInterfaceInfoSyslog(SyslogMessage& message, bool incoming) {
    const velm_log_entry_s& entry = message.entry;
    // The length is taken as it stands; it only serves to find a name.
    const std::string address =
        message.record.BytesAt(kInterfaceAddressOffset, entry.log_if_addr_len);
    wxString name;
    m_pConfigUtils->getInterfaceName(VelmCore::toHexString(address, false).ToStdString(), name);
    const wxCharBuffer shown = Underscored(name).ToAscii();
    AppendItem(message.body, "IN", {});
    if (incoming) PutBounded(message.body, shown);
    AppendItem(message.body, "OUT", {});
    if (!incoming) PutBounded(message.body, shown);

    AppendItem(message.body, "MAC", {});
    PutHardwareAddress(message.body, entry.log_eth.eth_dest);
    message.body.Put(':');
    PutHardwareAddress(message.body, entry.log_eth.eth_src);
    // Of each byte of the frame type only the low four bits.
    uint8_t type[2];
    memcpy(type, &entry.log_eth.eth_type, sizeof type);
    for (const uint8_t byte : type) {
        message.body.Put(":0");
        message.body.PutNumber(byte & 0x0Fu, 16);
    }
}

void LogData::AppendPayloadItems(SyslogMessage& message) {
    const velm_log_entry_s& entry = message.entry;
    const auto append = [&message](std::string_view plain, std::string_view extension, auto value,
                                   std::string_view label) {
        AppendNumberItem(message.body, message.Key(plain, extension), value);
        AppendLabel(message.format, message.body, extension, label);
    };
    AppendItem(message.body, "act", IsDetectOnly(entry) ? "IDS:" : "");
    PutUtf8(message.body, CPayloadFilter::LogActionToString(ActionOf(entry)));
    if (entry.log_reason < -1) append("STATUS", "cn2", int{entry.log_reason}, "DPI Reason");
    append("POS", "cn3", unsigned{entry.log_packet_pos}, "DPI Packet Position");
    append("SPOS", "cs5", uint32_t{entry.log_stream_pos}, "DPI Stream Position");
    if (entry.log_note_len != 0) AppendNote(message);
    append("FLAGS", "cs6", RemappedDpiFlags(entry.log_dpi_flags), "DPI Flags");
}

// The note as a whole is text or base64.
void LogData::AppendNote(SyslogMessage& message) {
    const uint8_t* note = message.entry.log_note;
    const size_t length = NoteLength(message.entry);
    const std::string bytes(reinterpret_cast<const char*>(note), length);
    const bool isText = std::all_of(note, note + length, [](int c) { return isprint(c) != 0; });
    wxString value = isText ? wxString::FromUTF8(bytes.data(), bytes.size())
                            : VelmCore::toBase64String(bytes, false);
    if (message.cef) {
        value = m_Syslogger.EscapeCEFExtension(value);
    } else if (isText) {
        value = Underscored(value);
    }
    AppendItem(message.body, message.Key("NOTE", "cs1"), {});
    PutUtf8(message.body, value, isText ? static_cast<size_t>(-1) : kMaxBinaryNote);
    AppendLabel(message.format, message.body, "cs1", "DPI Note");
}

// Goes behind the bounded text, and so is never cut.
void LogData::AppendPacketData(const SyslogMessage& message, std::string& out) {
    const velm_log_entry_s& entry = message.entry;
    if (!(entry.log_dpi_flags & LOG_DPI_PACKET_DATA) || entry.log_packet_data_len == 0) return;
    const std::string data =
        message.record.BytesAt(WorkingRecord::kFixedSize, entry.log_packet_data_len);
    const wxString text = VelmCore::toBase64String(data, false);
    out += " ZelloraPacketData=";
    out += m_Syslogger.EscapeCEFExtension(text).utf8_str();
}

}  // namespace OSTREL
