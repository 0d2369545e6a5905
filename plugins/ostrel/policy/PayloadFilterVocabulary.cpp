#include "PayloadFilter.h"
#include "Vocabulary.h"
#include "kdi/log_entry.h"

namespace OSTREL {
namespace {

const VocabularyRow PAYLOAD_ACTIONS[] = {
    {1, "Block"}, {2, "Reset"}, {3, "Insert"}, {4, "Delete"}, {5, "Replace"}, {6, "Log"},
};

const VocabularyRow PAYLOAD_STATUSES[] = {
    {-1, "Payload filter action"},
    {-101, "Debug Trace"},
    {-102, "Debug Packet Dump"},
    {-103, "Debug Connection State Dump"},
    {-200, "Region Too Big"},
    {-201, "Out of Bounds"},
    {-202, "Maximum Edits Exceeded"},
    {-203, "Edit Too Large"},
    {-204, "Max Matches in Packet Exceeded"},
    {-205, "Engine Call Stack Too Deep"},
    {-206, "Runtime Error"},
    {-207, "Packet Read Error"},
    {-300, "Unsupported Cipher"},
    {-301, "Error Generating Master Key(s)"},
    {-302, "Record Layer Message (not ready)"},
    {-303, "Handshake Message (not ready)"},
    {-304, "Out Of Order Handshake Message"},
    {-305, "Memory Allocation Error"},
    {-306, "Unsupported SSL Version"},
    {-307, "Error Decrypting Pre-master Key"},
    {-308, "Client Attempted to Rollback"},
    {-309, "Renewal Error"},
    {-310, "Key Exchange Error"},
    {-311, "Error Generating Pre-Master Request"},
    {-312, "Key Too Large"},
    {-313, "Invalid Parameters In Handshake"},
    {-314, "Number of Available Sessions Exceeded"},
    {-315, "Compression Method Unsupported"},
    {-500, "URI Path Depth Exceeded"},
    {-501, "Invalid Traversal"},
    {-502, "Illegal Character in URI"},
    {-503, "Incomplete UTF8 Sequence"},
    {-504, "Invalid UTF8 Encoding"},
    {-505, "Invalid Hex Encoding"},
    {-506, "URI Path Length Too Long"},
    {-507, "Invalid Use of Character"},
    {-508, "Double Decoding Exploit"},
    {-700, "Invalid Base64 Content"},
    {-710, "Corrupted Deflate/GZIP Content"},
    {-711, "Incomplete Deflate/GZIP Content"},
    {-712, "Deflate/GZIP Checksum Error"},
    {-713, "Unsupported Deflate/GZIP Dictionary"},
    {-714, "Unsupported GZIP Header Format/Method"},
    {-801, "Protocol Decoding Search Limit Exceeded"},
    {-802, "Protocol Decoding Constraint Error"},
    {-803, "Protocol Decoding Engine Internal Error"},
    {-804, "Protocol Decoding Structure Too Deep"},
    {-805, "Protocol Decoding Stack Error"},
    {-806, "Infinite Data Loop Error"},
    {10000, "Connection Close Notification"},
    {10001, "Connection Close Notification"},
};

}  // namespace

wxString CPayloadFilter::LogActionToString(int action) {
    const int plain = action & ~LOG_ACTION_DETECT_ONLY;
    const char* text = FindText(PAYLOAD_ACTIONS, plain);
    const wxString words = text ? Translate(text) : wxString::Format("%d", plain);
    return plain == action ? words : Translate("Detect Only: ") + words;
}

wxString CPayloadFilter::LogStatusToString(int status) {
    const char* text = FindText(PAYLOAD_STATUSES, status);
    return text ? Translate(text) : Translate("Error: ") + wxString::Format("%d", status);
}

void CPayloadFilter::AppendLogAction(TextCursor& out, int action) {
    const int plain = action & ~LOG_ACTION_DETECT_ONLY;
    if (plain != action) AppendTranslated(out, "Detect Only: ");
    const char* text = FindText(PAYLOAD_ACTIONS, plain);
    if (text) {
        AppendTranslated(out, text);
    } else {
        out.PutNumber(plain);
    }
}

void CPayloadFilter::AppendLogStatus(TextCursor& out, int status) {
    const char* text = FindText(PAYLOAD_STATUSES, status);
    AppendTranslated(out, text ? text : "Error: ");
    if (!text) out.PutNumber(status);
}

}  // namespace OSTREL
