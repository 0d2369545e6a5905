// LogData: one entry as the body of a syslog message.

#include <wx/debug.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "ConfigUtils.h"
#include "LogData.h"
#include "RecordText.h"
#include "ShortText.h"
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
constexpr size_t kNoLimit = static_cast<size_t>(-1);
// More than any text of a translation catalogue needs.
constexpr size_t kMaxWords = 1024;
// Hardware addresses up to this length are looked up without the heap: all that the record holds.
constexpr size_t kMaxShortAddress = sizeof(velm_log_entry_s::log_if_addr);
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

// What a %s of printf would show: the text up to a zero byte.
std::string_view Shown(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// Blanks as underscores.
void PutUnderscored(TextCursor& text, std::string_view value, size_t most) {
    text.PutBy(
        [value](char* out, size_t room) {
            const size_t length = std::min(value.size(), room);
            std::replace_copy(value.data(), value.data() + length, out, ' ', '_');
            return length;
        },
        most);
}

// Also one underscore for each character beyond ASCII; what continues it is left out.
void PutUnderscoredAscii(TextCursor& text, std::string_view value, size_t most = kNoLimit) {
    for (const char c : value) {
        if ((c & 0xC0) == 0x80) continue;
        if (most-- == 0) return;
        text.Put(c == ' ' || (c & 0x80) != 0 ? '_' : c);
    }
}

void PutCefPrefix(TextCursor& text, std::string_view value) {
    text.PutBy([value](char* out, size_t room) {
        return VelmCore::CSyslogger::EscapeCEFPrefix(value, out, room);
    });
}

void PutCefExtension(TextCursor& text, std::string_view value, size_t most = kNoLimit) {
    text.PutBy(
        [value](char* out, size_t room) {
            return VelmCore::CSyslogger::EscapeCEFExtension(value, out, room);
        },
        most);
}

void PutHardwareAddress(TextCursor& text, const uint8_t (&address)[6]) {
    text.PutBy(
        [&address](char* out, size_t room) {
            return VelmCore::toHexText(address, sizeof address, out, room);
        },
        kMaxAddress);
}

void Append(ShortText& text, int number) {
    char digits[16];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// The words that `append(TextCursor&, int)` has for the code.
template <class Words>
void Append(ShortText& text, Words append, int code) {
    char words[kMaxWords];
    TextCursor cursor(words, sizeof words);
    append(cursor, code);
    text.append(Shown(cursor.Text()));
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
    ShortTextRoom texts;

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
    ShortText name = message.texts.Make();
    SetPacketLogName(message, name, filterAction);
    if (message.cef) {
        const CefClass cefClass = PacketCefClass(entry, filterAction);
        ShortText identifier = message.texts.Make();
        Append(identifier, cefClass.number);
        AppendCefStart(message, identifier, name, cefClass.severity);
    } else {
        AppendPlainStart(message, name, {});
    }
    if (message.format != kFormatNoAction) {
        ShortText action = message.texts.Make();
        if (IsDetectOnly(entry)) action = "IDS:";
        Append(action, CPacketFilter::AppendFilterAction, filterAction);
        AppendItem(message.body, "act", {});
        if (message.format == kFormatUpperCase) {
            PutUnderscored(message.body, action, kMaxAction);
        } else {
            PutCefExtension(message.body, action, kMaxAction);
        }
    }
    AppendSyslogBody(message, !Has(entry, LOG_FLAG_OUTGOING));
}

// The name of a packet log, and the action that it shows. A filter's configured name never reaches
// the message: its number stands in its place, and nothing at all for a filter that is not
// configured.
void LogData::SetPacketLogName(const SyslogMessage& message, ShortText& name, int& filterAction) {
    const velm_log_entry_s& entry = message.entry;
    if (entry.log_filter_id != 0) {
        const int id = static_cast<int>(entry.log_filter_id);
        const bool isConfigured = m_pConfigUtils->getPacketFilterInfo(id, name, filterAction);
        name = message.cef ? "" : "PKT:";
        if (isConfigured) Append(name, id);
    } else if (entry.log_reason != 0) {
        Append(name, CPacketFilter::AppendLogStatus, entry.log_reason);
    }
    if (entry.log_action != 0) {
        filterAction = ActionOf(entry) == LOG_ACTION_DENY ? CPacketFilter::FilterActionDeny
                                                          : CPacketFilter::FilterActionLog;
    }
}

void LogData::AppendPayloadLog(SyslogMessage& message) {
    const velm_log_entry_s& entry = message.entry;
    ShortText name = message.texts.Make();
    ShortText identifier = message.texts.Make();
    bool incoming = true;
    int filterSeverity = 0;
    if (entry.log_filter_id == 0) {
        Append(name, CPayloadFilter::AppendLogStatus, entry.log_reason);
    } else {
        const int id = static_cast<int>(entry.log_filter_id);
        if (!m_pConfigUtils->getPayloadFilterInfo(id, name, incoming, filterSeverity, identifier)) {
            Append(name, id);
        }
        if (!message.cef) name.insert(0, "PLD:");
    }
    if (!message.cef) {
        AppendPlainStart(message, name, Has(entry, LOG_FLAG_FORWARD) ? " FWD" : " REV");
    } else if (entry.log_filter_id == 0) {
        Append(identifier, std::abs(int{entry.log_reason}));
        AppendCefStart(message, identifier, name, kDefaultSeverity);
    } else {
        if (identifier.empty()) identifier = "10";
        AppendCefStart(message, identifier, name, CefSeverity(filterSeverity));
    }
    // The direction that the filter is configured for, not the packet's own.
    AppendSyslogBody(message, incoming);
    AppendPayloadItems(message);
}

void LogData::AppendCefStart(SyslogMessage& message, std::string_view identifier,
                             std::string_view name, int severity) {
    const unsigned int size = static_cast<unsigned int>(message.body.Size());
    m_Syslogger.AppendHeaderCEF(message.body.Terminate(), size);
    message.body.Resume();
    PutCefPrefix(message.body, Shown(identifier));
    message.body.Put('|');
    PutCefPrefix(message.body, Shown(name));
    message.body.Put('|');
    message.body.PutNumber(severity);
    message.body.Put('|');
    m_Syslogger.AppendHostIdentityCEF(message.format, message.body.Terminate(), size);
    message.body.Resume();
}

void LogData::AppendPlainStart(SyslogMessage& message, std::string_view name,
                               std::string_view direction) {
    message.body.Put("REASON=");
    PutUnderscoredAscii(message.body, Shown(name), kMaxName);
    message.body.Put(direction);
    AppendHostIdentity(message);
}

void LogData::AppendHostIdentity(SyslogMessage& message) {
    if (m_pConfigUtils == nullptr) {
        OSTREL_TRACE(s_Trace, "Cannot append host identify ConfigUtils is NULL");
        return;
    }
    ShortText hostname = message.texts.Make();
    int hostId = 0;
    m_pConfigUtils->getAgentConfigurationHostIdentity(hostname, hostId);
    AppendNumberItem(message.body, "HOSTID", hostId);
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

// The interface's hardware address, of the length that the entry claims; it only serves to find the
// name.
void LogData::SetInterfaceName(const SyslogMessage& message, ShortText& name) {
    const size_t length = message.entry.log_if_addr_len;
    if (length <= kMaxShortAddress) {
        char address[3 * kMaxShortAddress + 1];
        address[VelmCore::toHexText(message.entry.log_if_addr, length, address,
                                    sizeof address - 1)] = '\0';
        m_pConfigUtils->getInterfaceName(address, name);
        return;
    }
    const std::string bytes = message.record.BytesAt(kInterfaceAddressOffset, length);
    m_pConfigUtils->getInterfaceName(VelmCore::toHexString(bytes, false).utf8_str().data(), name);
}

void LogData::AppendInterfaceInfoSyslog(SyslogMessage& message, bool incoming) {
    const velm_log_entry_s& entry = message.entry;
    ShortText name = message.texts.Make();
    SetInterfaceName(message, name);
    AppendItem(message.body, "IN", {});
    if (incoming) PutUnderscoredAscii(message.body, Shown(name));
    AppendItem(message.body, "OUT", {});
    if (!incoming) PutUnderscoredAscii(message.body, Shown(name));

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
    CPayloadFilter::AppendLogAction(message.body, ActionOf(entry));
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
    AppendItem(message.body, message.Key("NOTE", "cs1"), {});
    if (std::all_of(note, note + length, [](int c) { return isprint(c) != 0; })) {
        AppendTextNote(message, std::string_view(reinterpret_cast<const char*>(note), length));
    } else {
        char digits[4 * ((sizeof message.entry.log_note + 2) / 3)];
        const size_t count = VelmCore::toBase64Text(note, length, digits, sizeof digits);
        const std::string_view value(digits, count);
        if (message.cef) {
            PutCefExtension(message.body, value, kMaxBinaryNote);
        } else {
            message.body.Put(value);
        }
    }
    AppendLabel(message.format, message.body, "cs1", "DPI Note");
}

// What isprint takes for text in some other locale need not be UTF-8, and is nothing then.
void LogData::AppendTextNote(SyslogMessage& message, std::string_view note) {
    if (!VelmCore::IsUtf8(note)) return;
    if (message.cef) {
        PutCefExtension(message.body, note);
    } else {
        PutUnderscored(message.body, note, kNoLimit);
    }
}

// Goes behind the bounded text, and so is never cut.
void LogData::AppendPacketData(const SyslogMessage& message, std::string& out) {
    const velm_log_entry_s& entry = message.entry;
    if (!(entry.log_dpi_flags & LOG_DPI_PACKET_DATA) || entry.log_packet_data_len == 0) return;
    constexpr std::string_view kKey = " ZelloraPacketData=";
    const size_t length = std::min<size_t>(entry.log_packet_data_len, WorkingRecord::kPacketRoom);
    // The last digits may be two equals signs, which are escaped.
    out.reserve(out.size() + kKey.size() + (length + 2) / 3 * 4 + 2);
    out += kKey;
    constexpr size_t kStep = 3 * 64;
    for (size_t done = 0; done < length; done += kStep) {
        char digits[kStep / 3 * 4];
        char escaped[2 * sizeof digits];
        const size_t count =
            VelmCore::toBase64Text(message.record.PacketData() + done,
                                   std::min(kStep, length - done), digits, sizeof digits);
        out.append(escaped, VelmCore::CSyslogger::EscapeCEFExtension(
                                std::string_view(digits, count), escaped, sizeof escaped));
    }
}

}  // namespace OSTREL
