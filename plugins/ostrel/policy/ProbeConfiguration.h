#pragma once

#include "ElementList.h"
#include "velm/XmlObject.h"

namespace OSTREL {

// What is done about one type of probe.
class CProbeConfiguration : public VelmCore::XMLObject {
public:
    // Indexes arrays and bits; 7000 plus the number is the event's number.
    enum _ProbeType : int {
        FingerprintScan = 0,
        HostOrPortScan = 1,
        NullScan = 2,
        SynFinScan = 3,
        XmasScan = 4,
    };

    CProbeConfiguration();

    static const wchar_t* ElementName() { return L"ProbeConfiguration"; }
    const wchar_t* GetElementName() const override { return ElementName(); }

    static const wchar_t* toString(_ProbeType type);

    int m_ProbeId = -1;  // a _ProbeType; -1: none
    int m_BlockAttackerSeconds = 0;
    bool m_NotifyImmediately = false;
};

class CProbeConfigurations : public ElementList<CProbeConfiguration> {
public:
    static const wchar_t* ElementName() { return L"ProbeConfigurations"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
