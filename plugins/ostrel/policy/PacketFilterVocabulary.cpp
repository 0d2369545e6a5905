#include "PacketFilter.h"
#include "Vocabulary.h"
#include "velm/Text.h"

namespace OSTREL {
namespace {

const VocabularyRow FILTER_ACTIONS[] = {
    {0, "Log"}, {1, "Allow"}, {2, "Deny"}, {3, "Force Allow"}, {4, "Bypass"},
};

// Misspellings included: readers of existing logs know the texts as they stand.
const VocabularyRow PACKET_STATUSES[] = {
    {100, "Out Of Connection"},
    {101, "Invalid Flags"},
    {102, "Invalid Sequence"},
    {103, "Invalid Ack"},
    {104, "Internal Error"},
    {105, "CE Flags"},
    {106, "Invalid IP"},
    {107, "Invalid IP Datagram Length"},
    {108, "Fragmented"},
    {109, "Invalid Frament Offsets"},
    {110, "First Fragment Too Small"},
    {111, "Fragment Out Of Bounds"},
    {112, "Fragment Offset Too Small"},
    {113, "IPv6 Packet"},
    {114, "Max Incoming Connections"},
    {115, "Max Outgoing Connections"},
    {116, "Max Half Open Connections"},
    {118, "Invalid IP Header Length"},
    {119, "Invalid Packet Info"},
    {120, "Internal Engine Error"},
    {121, "Unsolicited UDP"},
    {122, "Unsolicited ICMP"},
    {123, "Out Of Allowed Policy"},
    {124, "Invalid Port Command"},
    {125, "SYN Cookie Error"},
    {126, "Invalid Data Offset"},
    {127, "No IP Header"},
    {128, "Unreadable Ethernet Header"},
    {130, "Same Source and Destination IP"},
    {131, "Invalid TCP Header Length"},
    {132, "Unreadable Protocol Header"},
    {133, "Unreadable IPv4 Header"},
    {134, "Unknown IP Version"},
    {135, "Invalid Adapter Configuration"},
    {136, "Overlapping Fragment"},
    {137, "Maximum ACK Retransmit"},
    {138, "Packet on Closed Connection"},
    {139, "Dropped Retransmit"},
    {141, "Out Of Allowed Policy (Open Port)"},
    {142, "New Connection"},
    {143, "Invalid Checksum"},
    {144, "Invalid Hook Used"},
    {145, "IP Zero Payload"},
    {146, "IPv6 Source Is Multicast"},
    {147, "Invalid IPv6 Address"},
    {148, "IPv6 Fragment Too Small"},
    {149, "Invalid Transport Header Length"},
    {150, "Driver Memory Failure"},
    {151, "Max TCP Connections"},
    {152, "Max UDP Connections"},
};

}  // namespace

wxString CPacketFilter::FilterActionToString(_FilterAction action) {
    const char* text = FindText(FILTER_ACTIONS, action);
    return text ? Translate(text) : VelmCore::toString(action);
}

wxString CPacketFilter::LogStatusToString(int status) {
    const char* text = FindText(PACKET_STATUSES, status);
    return text ? Translate(text) : wxString::Format("%#x", static_cast<unsigned int>(status));
}

void CPacketFilter::AppendFilterAction(TextCursor& out, int action) {
    const char* text = FindText(FILTER_ACTIONS, action);
    if (text) {
        AppendTranslated(out, text);
    } else {
        out.PutNumber(action);
    }
}

void CPacketFilter::AppendLogStatus(TextCursor& out, int status) {
    const char* text = FindText(PACKET_STATUSES, status);
    if (text) {
        AppendTranslated(out, text);
    } else {
        if (status != 0) out.Put("0x");
        out.PutNumber(static_cast<unsigned int>(status), 16);
    }
}

}  // namespace OSTREL
