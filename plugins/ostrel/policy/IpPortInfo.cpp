#include "IpPortInfo.h"

namespace OSTREL {

CIpPortInfo::CIpPortInfo() : XMLObject(false, true) {
    AddAttribute(L"ipType", &m_IpType, 0, false);
    AddAttribute(L"ip", &m_Ip, false);
    AddAttribute(L"ipMask", &m_IpMask, false);
    AddAttribute(L"ipFrom", &m_IpFrom, false);
    AddAttribute(L"ipTo", &m_IpTo, false);
    AddAttribute(L"ipListId", &m_IpListId, 0, false);
    AddAttribute(L"ipNot", &m_IpNot, false);
    AddAttribute(L"mac", &m_Mac, false);
    AddAttribute(L"macListId", &m_MacListId, 0, false);
    AddAttribute(L"macNot", &m_MacNot, false);
    AddAttribute(L"macType", &m_MacType, 0, false);
    AddAttribute(L"portType", &m_PortType, 0, false);
    AddAttribute(L"ports", &m_Ports, false);
    AddAttribute(L"portListId", &m_PortListId, 0, false);
    AddAttribute(L"portNot", &m_PortNot, false);
}

}  // namespace OSTREL
