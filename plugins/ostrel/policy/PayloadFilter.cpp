#include "PayloadFilter.h"

namespace OSTREL {

CPayloadFilter::CPayloadFilter() {
    AddAttribute(L"connectionTypeId", &m_ConnectionTypeId, 0, false);
    AddAttribute(L"scheduleId", &m_ScheduleId, 0, false);
    AddAttribute(L"disableLog", &m_DisableLog, false);
    AddAttribute(L"logPacketDrop", &m_LogPacketDrop, false);
    AddAttribute(L"logPacketModify", &m_LogPacketModify, false);
    AddAttribute(L"includePacketData", &m_IncludePacketData, false);
    AddAttribute(L"debugMode", &m_DebugMode, false);
    AddAttribute(L"logFirstPduTimeout", &m_LogFirstPduTimeout, 0, false);
    AddAttribute(L"mode", &m_Mode, 0, false);
    AddAttribute(L"priority", &m_Priority, 0, false);
    AddAttribute(L"type", &m_Type, 0, false);
    AddAttribute(L"confidential", &m_Confidential, false);
    AddAttribute(L"rules", &m_Rules);
    AddAttribute(L"severity", &m_Severity, 0, false);
    AddAttribute(L"identifier", &m_Identifier, false);
    AddAttribute(L"ruleContextId", &m_RuleContextId, 0, false);
}

CPayloadFilter::~CPayloadFilter() {
    EraseRules();
}

void CPayloadFilter::EraseRules() {
    m_Rules.Scrub();
}

}  // namespace OSTREL
