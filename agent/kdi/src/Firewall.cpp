#include "Firewall.h"

#include <algorithm>
#include <cstring>

namespace Kdi {

namespace {

bool IsPlainSyn(uint8_t flags) {
    const uint8_t mask = TCP_FLAG_SYN | TCP_FLAG_ACK | TCP_FLAG_RST | TCP_FLAG_FIN;
    return (flags & mask) == TCP_FLAG_SYN;
}

// Flags that no connection may carry: none, SYN with FIN (all flags among them), FIN+PSH+URG alone.
bool IsInvalid(uint8_t flags) {
    const uint8_t synFin = TCP_FLAG_SYN | TCP_FLAG_FIN;
    return flags == 0 || (flags & synFin) == synFin ||
           flags == (TCP_FLAG_FIN | TCP_FLAG_PSH | TCP_FLAG_URG);
}

// A tiny first fragment: its datagram's TCP header ends in later ones.
bool IsTooSmall(const Frame& frame) {
    return frame.IsFirstFragment() && frame.moreFragments && frame.protocol == IP_PROTO_TCP &&
           !frame.HasTransport();
}

void GiveUpRecord(const HeldFragment& held, Record& record) {
    const Packet& packet = held.Whole();
    CopyHeaders(packet.frame, LOG_FLAG_FORWARD, record.headers);
    record.first = record.last = packet.time;
    record.action = LOG_ACTION_DENY;
    record.reason = LOG_REASON_FIRST_FRAGMENT_TOO_SMALL;
    record.filter = 0;
}

void EndRecord(const Flow& flow, int16_t reason, int64_t time, Record& record) {
    record.headers = flow.first;
    record.first = flow.begun;
    record.last = time;
    record.action = 0;
    record.reason = reason;
    record.filter = 0;
}

}  // namespace

void Firewall::SetClock(int64_t time) {
    m_Clock = std::max(m_Clock, time);
}

// A host that has no address yet is told by its interface.
bool Firewall::IsSentByInterface(const Packet& packet) const {
    const uint8_t* hardware = packet.frame.sourceHardware;
    return hardware && m_Host.Interface() && packet.frame.HasUnspecifiedSource() &&
           std::memcmp(hardware, m_Host.Interface()->data(), m_Host.Interface()->size()) == 0;
}

Firewall::Way Firewall::WayOf(const Packet& packet) const {
    const bool toLocal = m_Host.IsLocal(packet.destination);
    if (m_Host.IsLocal(packet.source)) return toLocal ? Way::None : Way::Outbound;
    if (IsSentByInterface(packet)) return Way::Outbound;
    if (toLocal || packet.frame.linkGroup || packet.frame.IsForIpGroup()) return Way::Inbound;
    return Way::None;
}

bool Firewall::Judge(const Packet& packet, Record& record) {
    const Way way = WayOf(packet);
    if (way == Way::None) return false;
    const bool outbound = way == Way::Outbound;
    const Frame& frame = packet.frame;
    if (!frame.fragment) return ToRecord(packet, outbound, JudgeWhole(packet, outbound), record);
    if (frame.IsLaterFragment()) return !outbound && JudgeLaterFragment(packet, record);
    if (!outbound && IsTooSmall(frame)) {
        m_Fragments.Hold(packet, m_Clock, m_GivenUp);
        return false;
    }
    const Verdict verdict = JudgeWhole(packet, outbound);
    if (!outbound && verdict.flow && verdict.kind != Kind::Deny) {
        m_Fragments.Accept(packet, m_Clock, m_GivenUp);
    }
    return ToRecord(packet, outbound, verdict, record);
}

// A fragment either completes the header that its datagram waits for, or belongs to a datagram
// whose first fragment was accepted, or is denied.
bool Firewall::JudgeLaterFragment(const Packet& packet, Record& record) {
    HeldFragment* held = m_Fragments.FindHeld(packet);
    if (held && held->Append(packet.frame)) {
        if (!held->Whole().frame.HasTransport()) return false;
        Packet whole = held->Whole();
        SetEnds(whole);
        const Verdict verdict = JudgeWhole(whole, false);
        const bool isRecord = ToRecord(whole, false, verdict, record);
        m_Fragments.Complete(packet, verdict.flow && verdict.kind != Kind::Deny);
        return isRecord;
    }
    if (m_Fragments.IsAccepted(packet)) return false;
    return ToRecord(packet, false, Deny(LOG_REASON_FRAGMENTED, nullptr), record);
}

Firewall::Verdict Firewall::JudgeWhole(const Packet& packet, bool outbound) {
    const Frame& frame = packet.frame;
    const bool readable = frame.HasTransport();
    if (readable && frame.protocol == IP_PROTO_TCP) return JudgeTcp(packet, outbound);
    if (readable && frame.protocol == IP_PROTO_UDP) {
        return JudgeDatagram(
            packet, outbound,
            outbound || m_Host.IsOpen(IP_PROTO_UDP, packet.destination, packet.destinationPort));
    }
    if (readable && frame.IsIcmp()) return JudgeIcmp(packet, outbound);
    return outbound ? Pass(nullptr) : DenyByFilter();
}

Firewall::Verdict Firewall::JudgeTcp(const Packet& packet, bool outbound) {
    const uint8_t flags = packet.frame.TcpFlags();
    Flow* flow = m_Flows.Find(packet.key);
    if (!outbound && IsInvalid(flags)) return Deny(LOG_REASON_INVALID_FLAGS, flow);
    if (flow && flow->wait == FlowWait::Oblivion && IsPlainSyn(flags)) {
        m_Flows.Remove(*flow);  // the ports are used anew
        flow = nullptr;
    }
    return flow ? FollowTcp(packet, *flow) : JudgeNewTcp(packet, outbound);
}

Firewall::Verdict Firewall::JudgeNewTcp(const Packet& packet, bool outbound) {
    const uint8_t flags = packet.frame.TcpFlags();
    if (outbound) {
        return Pass(flags & TCP_FLAG_RST ? nullptr : &Begin(packet, outbound));
    }
    if (!(flags & TCP_FLAG_SYN)) return Deny(LOG_REASON_OUT_OF_CONNECTION, nullptr);
    if (!m_Host.IsOpen(IP_PROTO_TCP, packet.destination, packet.destinationPort)) {
        return DenyByFilter();
    }
    if (!IsPlainSyn(flags)) return Deny(LOG_REASON_OUT_OF_CONNECTION, nullptr);
    return Pass(&Begin(packet, outbound));
}

Firewall::Verdict Firewall::FollowTcp(const Packet& packet, Flow& flow) {
    if (flow.wait == FlowWait::Oblivion) return Pass(&flow);
    const uint8_t flags = packet.frame.TcpFlags();
    if (flags & TCP_FLAG_RST) return End(flow, LOG_REASON_CONNTRACK_CLOSED);
    if (flags & TCP_FLAG_FIN) flow.finSides |= packet.swapped == flow.swapped ? 1 : 2;
    if (flow.finSides == 3) return End(flow, LOG_REASON_CONNTRACK_CLOSED_NORMAL);
    NoteSide(packet, flow);
    return Pass(&flow);
}

Firewall::Verdict Firewall::JudgeDatagram(const Packet& packet, bool outbound, bool mayBegin) {
    Flow* flow = m_Flows.Find(packet.key);
    if (flow) {
        NoteSide(packet, *flow);
        return Pass(flow);
    }
    if (mayBegin) return Pass(&Begin(packet, outbound));
    return outbound ? Pass(nullptr) : DenyByFilter();
}

Firewall::Verdict Firewall::JudgeIcmp(const Packet& packet, bool outbound) {
    const Frame& frame = packet.frame;
    if (frame.IsLinkHousekeeping()) return Pass(nullptr);
    if (frame.IsEchoReply()) return JudgeDatagram(packet, outbound, false);
    if (frame.IsEchoRequest()) {
        return JudgeDatagram(packet, outbound,
                             outbound || m_Host.IsOpen(frame.protocol, packet.destination, 0));
    }
    if (outbound) return Pass(nullptr);
    if (frame.IsIcmpError()) {
        const FlowKey cause = EmbeddedKey(frame, m_Book);
        Flow* flow = cause.Empty() ? nullptr : m_Flows.Find(cause);
        if (flow) return Pass(flow);
    }
    return DenyByFilter();
}

Flow& Firewall::Begin(const Packet& packet, bool outbound) {
    const uint8_t direction =
        static_cast<uint8_t>(LOG_FLAG_FORWARD | (outbound ? LOG_FLAG_OUTGOING : 0));
    Flow& flow = m_Flows.Begin(packet, direction);
    NoteSide(packet, flow);
    return flow;
}

// A handshake is finished when the side that began it goes on behind the other's answer: one whose
// answer met with silence is as good as never answered.
void Firewall::NoteSide(const Packet& packet, Flow& flow) {
    const bool isTcp = packet.frame.protocol == IP_PROTO_TCP;
    if (packet.swapped != flow.swapped) {
        flow.answered = true;
    } else if (isTcp && !(packet.frame.TcpFlags() & TCP_FLAG_SYN)) {
        flow.confirmed = true;
    }
    FlowWait wait = FlowWait::Answer;
    if (isTcp && flow.answered && flow.confirmed) wait = FlowWait::Segments;
    if (!isTcp && flow.answered) wait = FlowWait::Datagrams;
    m_Flows.Wait(flow, wait, m_Clock);
}

Firewall::Verdict Firewall::End(Flow& flow, int16_t reason) {
    m_Flows.Wait(flow, FlowWait::Oblivion, m_Clock);
    return {Kind::End, reason, 0, &flow};
}

bool Firewall::ToRecord(const Packet& packet, bool outbound, const Verdict& verdict,
                        Record& record) {
    if (verdict.kind == Kind::Pass) return false;
    if (verdict.kind == Kind::End) {
        EndRecord(*verdict.flow, verdict.reason, packet.time, record);
        return true;
    }
    const bool forward = !verdict.flow || verdict.flow->swapped == packet.swapped;
    const uint8_t direction =
        static_cast<uint8_t>((forward ? LOG_FLAG_FORWARD : 0) | (outbound ? LOG_FLAG_OUTGOING : 0));
    CopyHeaders(packet.frame, direction, record.headers);
    record.first = record.last = packet.time;
    record.action = LOG_ACTION_DENY;
    record.reason = verdict.reason;
    record.filter = verdict.filter;
    return true;
}

bool Firewall::GiveUp(Record& record) {
    if (m_GivenUp.empty()) return false;
    GiveUpRecord(m_GivenUp.front(), record);
    m_GivenUp.erase(m_GivenUp.begin());
    return true;
}

// Those that have ended and were remembered for their stragglers only are dropped without a word.
Flow* Firewall::EarliestFlow(int64_t limit) {
    for (Flow* flow; (flow = m_Flows.First(FlowWait::Oblivion)) && flow->deadline < limit;) {
        m_Flows.Remove(*flow);
    }
    Flow* earliest = nullptr;
    for (const FlowWait wait : {FlowWait::Answer, FlowWait::Datagrams, FlowWait::Segments}) {
        Flow* flow = m_Flows.First(wait);
        if (!flow || flow->deadline >= limit) continue;
        const bool isEarlier =
            !earliest || flow->deadline < earliest->deadline ||
            (flow->deadline == earliest->deadline && flow->number < earliest->number);
        if (isEarlier) earliest = flow;
    }
    return earliest;
}

bool Firewall::NextBefore(int64_t limit, Record& record) {
    if (GiveUp(record)) return true;
    Flow* flow = EarliestFlow(limit);
    int64_t deadline = 0;
    const HeldFragment* held = m_Fragments.Overdue(limit, deadline);
    if (held && (!flow || deadline <= flow->deadline)) {
        GiveUpRecord(*held, record);
        m_Fragments.DropOldest();
        return true;
    }
    if (!flow) return false;
    EndRecord(*flow, LOG_REASON_CONNTRACK_CLOSED, std::min(flow->deadline, m_Clock), record);
    m_Flows.Remove(*flow);
    return true;
}

bool Firewall::NextOverdue(Record& record) {
    return NextBefore(m_Clock, record);
}

// Connections that were answered have not ended; they are left out.
bool Firewall::NextUnfinished(Record& record) {
    for (Flow* flow; (flow = m_Flows.First(FlowWait::Datagrams));)
        m_Flows.Remove(*flow);
    for (Flow* flow; (flow = m_Flows.First(FlowWait::Segments));)
        m_Flows.Remove(*flow);
    return NextBefore(INT64_MAX, record);
}

}  // namespace Kdi
