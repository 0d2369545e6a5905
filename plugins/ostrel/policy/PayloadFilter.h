#pragma once

#include <wx/string.h>

#include "ElementList.h"
#include "FilterBase.h"
#include "velm/SecureString.h"

namespace OSTREL {

class TextCursor;

// A rule of the payload engine.
class CPayloadFilter : public CFilterBase {
public:
    CPayloadFilter();
    // Wipes the rules.
    ~CPayloadFilter() override;

    static const wchar_t* ElementName() { return L"PayloadFilter2"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    void EraseRules();

    // Words of log entries. Pure; any thread.
    static wxString LogActionToString(int action);
    static wxString LogStatusToString(int status);
    // The same words at the end of a text.
    static void AppendLogAction(TextCursor& out, int action);
    static void AppendLogStatus(TextCursor& out, int status);

    int m_ConnectionTypeId = 0;
    int m_ScheduleId = 0;
    bool m_DisableLog = false;
    bool m_LogPacketDrop = false;
    bool m_LogPacketModify = false;
    bool m_IncludePacketData = false;
    bool m_DebugMode = false;
    int m_LogFirstPduTimeout = 0;
    int m_Mode = 0;
    int m_Priority = 0;
    int m_Type = 0;
    bool m_Confidential = false;
    wxSecureString m_Rules;
    int m_Severity = 0;
    wxString m_Identifier;
    int m_RuleContextId = 0;
};

class CPayloadFilters : public ElementList<CPayloadFilter> {
public:
    static const wchar_t* ElementName() { return L"PayloadFilter2s"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
