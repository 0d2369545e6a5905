#include "ProbeConfiguration.h"

namespace OSTREL {

CProbeConfiguration::CProbeConfiguration() : XMLObject(false, true) {
    AddAttribute(L"probeId", &m_ProbeId, -1, false);
    AddAttribute(L"blockAttackerSeconds", &m_BlockAttackerSeconds, 0, false);
    AddAttribute(L"notifyImmediately", &m_NotifyImmediately, false);
}

const wchar_t* CProbeConfiguration::toString(_ProbeType type) {
    switch (type) {
        case FingerprintScan:
            return L"FingerprintScan";
        case HostOrPortScan:
            return L"HostOrPortScan";
        case NullScan:
            return L"NullScan";
        case SynFinScan:
            return L"SynFinScan";
        case XmasScan:
            return L"XmasScan";
    }
    return L"UnknownProbeType";
}

}  // namespace OSTREL
