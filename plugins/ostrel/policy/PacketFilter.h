#pragma once

#include <wx/string.h>

#include "ElementList.h"
#include "FilterBase.h"
#include "IpPortInfo.h"
#include "velm/XmlObject.h"

namespace OSTREL {

class TextCursor;

// The header bits that a packet filter looks at.
class CPacketFilterFlags : public VelmCore::XMLObject {
public:
    CPacketFilterFlags();

    static const wchar_t* ElementName() { return L"Flags"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    int m_Type = 0;
    bool m_AnyFlags = false;
    bool m_Not = false;
    int m_TcpFlags = 0;
    int m_IcmpType = -1;  // -1: any
    int m_IcmpCode = -1;
};

// A rule of the firewall engine.
class CPacketFilter : public CFilterBase {
public:
    // Has a fixed underlying type: numbers from log entries are passed as actions unchecked.
    enum _FilterAction : int {
        FilterActionLog = 0,
        FilterActionAllow = 1,
        FilterActionDeny = 2,
        FilterActionForceAllow = 3,
        FilterActionBypass = 4,
        FilterActionPcap = 5,  // never in a policy: EndAttributes sets it
    };

    CPacketFilter();

    static const wchar_t* ElementName() { return L"PacketFilter"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    // A log filter whose name marks it as a capture filter becomes one. Always 1.
    int EndAttributes() override;

    // Words of log entries. Pure; any thread.
    static wxString FilterActionToString(_FilterAction action);
    static wxString LogStatusToString(int status);
    // The same words at the end of a text.
    static void AppendFilterAction(TextCursor& out, int action);
    static void AppendLogStatus(TextCursor& out, int status);

    bool m_DisableLog = false;
    int m_FilterAction = FilterActionLog;  // a _FilterAction; null until it is set or read
    int m_FrameType = 0;
    bool m_FrameTypeNot = false;
    int m_Type = 0;
    bool m_LogData = false;
    bool m_LogPduFirst = false;
    int m_LogPduPeriod = 0;
    int m_PacketDirection = 0;
    int m_Priority = 0;
    int m_Protocol = 0;
    bool m_ProtocolNot = false;
    int m_ScheduleId = 0;
    int m_RuleContextId = 0;
    CSourceInfo m_SourceInfo;
    CDestInfo m_DestInfo;
    CPacketFilterFlags m_Flags;
};

class CPacketFilters : public ElementList<CPacketFilter> {
public:
    static const wchar_t* ElementName() { return L"PacketFilters"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
