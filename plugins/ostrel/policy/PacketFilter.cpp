#include "PacketFilter.h"

namespace OSTREL {

CPacketFilterFlags::CPacketFilterFlags() : XMLObject(false, true) {
    AddAttribute(L"type", &m_Type, 0, false);
    AddAttribute(L"anyFlags", &m_AnyFlags, false);
    AddAttribute(L"not", &m_Not, false);
    AddAttribute(L"tcpFlags", &m_TcpFlags, 0, false);
    AddAttribute(L"icmpType", &m_IcmpType, -1, false);
    AddAttribute(L"icmpCode", &m_IcmpCode, -1, false);
}

CPacketFilter::CPacketFilter() {
    AddAttribute(L"disableLog", &m_DisableLog, false);
    AddAttribute(L"filterAction", &m_FilterAction);
    AddAttribute(L"frameType", &m_FrameType, 0, false);
    AddAttribute(L"frameTypeNot", &m_FrameTypeNot, false);
    AddAttribute(L"type", &m_Type, 0, false);
    AddAttribute(L"logData", &m_LogData, false);
    AddAttribute(L"logPduFirst", &m_LogPduFirst, false);
    AddAttribute(L"logPduPeriod", &m_LogPduPeriod, 0, false);
    AddAttribute(L"packetDirection", &m_PacketDirection, 0, false);
    AddAttribute(L"priority", &m_Priority, 0, false);
    AddAttribute(L"protocol", &m_Protocol, 0, false);
    AddAttribute(L"protocolNot", &m_ProtocolNot, false);
    AddAttribute(L"scheduleId", &m_ScheduleId, 0, false);
    AddAttribute(L"ruleContextId", &m_RuleContextId, 0, false);
    AddChild(&m_SourceInfo);
    AddChild(&m_DestInfo);
    AddChild(&m_Flags);
}

int CPacketFilter::EndAttributes() {
    if (m_FilterAction == FilterActionLog && m_Name.StartsWith("VELM PCAP")) {
        m_FilterAction = FilterActionPcap;
        SetAttributeNull(&m_FilterAction, false);
    }
    return 1;
}

}  // namespace OSTREL
