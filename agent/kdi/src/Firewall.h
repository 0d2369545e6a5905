#pragma once

#include <cstdint>
#include <vector>

#include "FlowTable.h"
#include "Fragments.h"
#include "LocalHost.h"
#include "Packet.h"
#include "Record.h"

namespace Kdi {

// Plays the host's firewall: tracks connections and says what it would have logged. Packets come in
// the order of their capture; what is denied takes no memory.
class Firewall {
public:
    // Both outlive the firewall.
    Firewall(const LocalHost& host, const AddressBook& book) : m_Host(host), m_Book(book) {}

    // Moves the clock to a packet's time; it never goes back.
    void SetClock(int64_t time);
    // The next record that time alone brings forth, before the packet at the clock is judged. False
    // if there is none (left).
    bool NextOverdue(Record& record);
    // Judges a packet. True if it is to be logged or ended a connection.
    bool Judge(const Packet& packet, Record& record);
    // What is still open behind the last packet and ends with it. False if there is none (left).
    bool NextUnfinished(Record& record);

private:
    enum class Kind : uint8_t { Pass, Deny, End };
    struct Verdict {
        Kind kind;
        int16_t reason;
        uint32_t filter;
        Flow* flow;  // the connection that the packet belongs to, or null
    };
    enum class Way : uint8_t { None, Inbound, Outbound };

    static Verdict Pass(Flow* flow) { return {Kind::Pass, 0, 0, flow}; }
    static Verdict DenyByFilter() { return {Kind::Deny, LOG_REASON_FILTER, 1, nullptr}; }
    static Verdict Deny(int16_t reason, Flow* flow) { return {Kind::Deny, reason, 0, flow}; }

    Way WayOf(const Packet& packet) const;
    bool IsSentByInterface(const Packet& packet) const;
    Verdict JudgeWhole(const Packet& packet, bool outbound);
    Verdict JudgeTcp(const Packet& packet, bool outbound);
    Verdict JudgeNewTcp(const Packet& packet, bool outbound);
    Verdict JudgeDatagram(const Packet& packet, bool outbound, bool mayBegin);
    Verdict JudgeIcmp(const Packet& packet, bool outbound);
    Verdict FollowTcp(const Packet& packet, Flow& flow);
    Flow& Begin(const Packet& packet, bool outbound);
    void NoteSide(const Packet& packet, Flow& flow);
    Verdict End(Flow& flow, int16_t reason);
    bool JudgeLaterFragment(const Packet& packet, Record& record);
    bool ToRecord(const Packet& packet, bool outbound, const Verdict& verdict, Record& record);
    bool NextBefore(int64_t limit, Record& record);
    bool GiveUp(Record& record);
    Flow* EarliestFlow(int64_t limit);

    const LocalHost& m_Host;
    const AddressBook& m_Book;
    FlowTable m_Flows;
    Fragments m_Fragments;
    std::vector<HeldFragment> m_GivenUp;
    int64_t m_Clock = 0;
};

}  // namespace Kdi
