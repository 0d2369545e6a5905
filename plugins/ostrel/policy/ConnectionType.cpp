#include "ConnectionType.h"

namespace OSTREL {

CConnectionType::CConnectionType() {
    AddAttribute(L"direction", &m_Direction, 0, false);
    AddAttribute(L"protocol", &m_Protocol, 0, false);
    AddAttribute(L"icmpType1", &m_IcmpType1, 0, false);
    AddAttribute(L"icmpType2", &m_IcmpType2, 0, false);
    AddAttribute(L"engine", &m_Engine);
    AddAttribute(L"virtualPortName", &m_VirtualPortName, false);
    AddChild(&m_AddressInfo);
}

}  // namespace OSTREL
