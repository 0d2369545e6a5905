#pragma once

#include <wx/string.h>

#include "velm/XmlObject.h"

namespace OSTREL {

// One end of a connection as the policy names it: addresses, hardware addresses and ports. What the
// type numbers mean is the policy's. A base only: it has no element name.
class CIpPortInfo : public VelmCore::XMLObject {
public:
    CIpPortInfo();

    int m_IpType = 0;
    wxString m_Ip;
    wxString m_IpMask;
    wxString m_IpFrom;
    wxString m_IpTo;
    int m_IpListId = 0;
    bool m_IpNot = false;
    wxString m_Mac;
    int m_MacListId = 0;
    bool m_MacNot = false;
    int m_MacType = 0;
    int m_PortType = 0;
    wxString m_Ports;
    int m_PortListId = 0;
    bool m_PortNot = false;
};

class CAddressInfo : public CIpPortInfo {
public:
    static const wchar_t* ElementName() { return L"AddressInfo"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

class CSourceInfo : public CIpPortInfo {
public:
    static const wchar_t* ElementName() { return L"SourceInfo"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

class CDestInfo : public CIpPortInfo {
public:
    static const wchar_t* ElementName() { return L"DestInfo"; }
    const wchar_t* GetElementName() const override { return ElementName(); }
};

}  // namespace OSTREL
