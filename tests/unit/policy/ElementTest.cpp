// Which member each attribute is bound to, and the elements' own rules.
#include "Xml.h"
#include "policy/ConnectionType.h"
#include "policy/PacketFilter.h"
#include "policy/PayloadFilter.h"
#include "policy/ProbeConfiguration.h"
#include "policy/SSLCredential.h"
#include "policy/SSLHostConfiguration.h"

namespace {

using namespace OSTREL;
using policy_test::Read;
using policy_test::Write;

// Reads `<element attribute="value"/>` and gives one member of the result.
template <typename Element, typename T>
T ReadOne(const char* attribute, const char* value, T Element::*member) {
    const std::string name = wxString(Element::ElementName()).utf8_string();
    Element element;
    EXPECT_TRUE(Read(element, "<" + name + " " + attribute + "=\"" + value + "\"/>"));
    return element.*member;
}

TEST(PolicyMember, OfAnEndOfAConnection) {
    CAddressInfo end;
    ASSERT_TRUE(Read(end,
                     "<AddressInfo ipType=\"1\" ip=\"a\" ipMask=\"b\" ipFrom=\"c\" ipTo=\"d\""
                     " ipListId=\"2\" mac=\"e\" macListId=\"3\" macType=\"4\" portType=\"5\""
                     " ports=\"f\" portListId=\"6\"/>"));
    EXPECT_EQ(end.m_IpType, 1);
    EXPECT_EQ(end.m_Ip, "a");
    EXPECT_EQ(end.m_IpMask, "b");
    EXPECT_EQ(end.m_IpFrom, "c");
    EXPECT_EQ(end.m_IpTo, "d");
    EXPECT_EQ(end.m_IpListId, 2);
    EXPECT_EQ(end.m_Mac, "e");
    EXPECT_EQ(end.m_MacListId, 3);
    EXPECT_EQ(end.m_MacType, 4);
    EXPECT_EQ(end.m_PortType, 5);
    EXPECT_EQ(end.m_Ports, "f");
    EXPECT_EQ(end.m_PortListId, 6);
    EXPECT_FALSE(end.m_IpNot || end.m_MacNot || end.m_PortNot);
    ASSERT_TRUE(Read(end, "<AddressInfo ipNot=\"true\"/>"));
    EXPECT_TRUE(end.m_IpNot && !end.m_MacNot && !end.m_PortNot);
    ASSERT_TRUE(Read(end, "<AddressInfo macNot=\"true\"/>"));
    EXPECT_TRUE(!end.m_IpNot && end.m_MacNot && !end.m_PortNot);
    ASSERT_TRUE(Read(end, "<AddressInfo portNot=\"true\"/>"));
    EXPECT_TRUE(!end.m_IpNot && !end.m_MacNot && end.m_PortNot);
}

TEST(PolicyMember, OfAConnectionType) {
    CConnectionType type;
    ASSERT_TRUE(Read(type,
                     "<ConnectionType id=\"1\" name=\"n\" description=\"d\" direction=\"2\""
                     " protocol=\"3\" icmpType1=\"4\" icmpType2=\"5\" engine=\"e\""
                     " virtualPortName=\"v\"><AddressInfo ip=\"192.0.2.1\"/></ConnectionType>"));
    EXPECT_EQ(type.m_Id, 1);
    EXPECT_EQ(type.m_Name, "n");
    EXPECT_EQ(type.m_Description, "d");
    EXPECT_EQ(type.m_Direction, 2);
    EXPECT_EQ(type.m_Protocol, 3);
    EXPECT_EQ(type.m_IcmpType1, 4);
    EXPECT_EQ(type.m_IcmpType2, 5);
    EXPECT_EQ(type.m_Engine.ToString(), "e");
    EXPECT_EQ(type.m_VirtualPortName, "v");
    EXPECT_EQ(type.m_AddressInfo.m_Ip, "192.0.2.1");
}

TEST(PolicyMember, OfPacketFilterFlags) {
    CPacketFilterFlags flags;
    ASSERT_TRUE(Read(flags, "<Flags type=\"1\" tcpFlags=\"2\" icmpType=\"3\" icmpCode=\"4\"/>"));
    EXPECT_EQ(flags.m_Type, 1);
    EXPECT_EQ(flags.m_TcpFlags, 2);
    EXPECT_EQ(flags.m_IcmpType, 3);
    EXPECT_EQ(flags.m_IcmpCode, 4);
    EXPECT_TRUE(ReadOne("anyFlags", "true", &CPacketFilterFlags::m_AnyFlags));
    EXPECT_FALSE(ReadOne("anyFlags", "true", &CPacketFilterFlags::m_Not));
    EXPECT_TRUE(ReadOne("not", "true", &CPacketFilterFlags::m_Not));
}

TEST(PolicyMember, NumbersOfAPacketFilter) {
    CPacketFilter filter;
    ASSERT_TRUE(Read(filter,
                     "<PacketFilter filterAction=\"3\" frameType=\"1\" type=\"2\""
                     " logPduPeriod=\"4\" packetDirection=\"5\" priority=\"6\" protocol=\"7\""
                     " scheduleId=\"8\" ruleContextId=\"9\"><Flags tcpFlags=\"10\"/>"
                     "<DestInfo ip=\"d\"/><SourceInfo ip=\"s\"/></PacketFilter>"));
    EXPECT_EQ(filter.m_FilterAction, CPacketFilter::FilterActionForceAllow);
    EXPECT_EQ(filter.m_FrameType, 1);
    EXPECT_EQ(filter.m_Type, 2);
    EXPECT_EQ(filter.m_LogPduPeriod, 4);
    EXPECT_EQ(filter.m_PacketDirection, 5);
    EXPECT_EQ(filter.m_Priority, 6);
    EXPECT_EQ(filter.m_Protocol, 7);
    EXPECT_EQ(filter.m_ScheduleId, 8);
    EXPECT_EQ(filter.m_RuleContextId, 9);
    EXPECT_EQ(filter.m_Flags.m_TcpFlags, 10);
    EXPECT_EQ(filter.m_DestInfo.m_Ip, "d");
    EXPECT_EQ(filter.m_SourceInfo.m_Ip, "s");
}

TEST(PolicyMember, BooleansOfAPacketFilter) {
    EXPECT_TRUE(ReadOne("disableLog", "true", &CPacketFilter::m_DisableLog));
    EXPECT_TRUE(ReadOne("frameTypeNot", "true", &CPacketFilter::m_FrameTypeNot));
    EXPECT_TRUE(ReadOne("logData", "true", &CPacketFilter::m_LogData));
    EXPECT_TRUE(ReadOne("logPduFirst", "true", &CPacketFilter::m_LogPduFirst));
    EXPECT_TRUE(ReadOne("protocolNot", "true", &CPacketFilter::m_ProtocolNot));
    EXPECT_FALSE(ReadOne("frameTypeNot", "true", &CPacketFilter::m_ProtocolNot));
    EXPECT_FALSE(ReadOne("logData", "true", &CPacketFilter::m_LogPduFirst));
}

TEST(PolicyMember, OfAPayloadFilter) {
    CPayloadFilter filter;
    ASSERT_TRUE(Read(filter,
                     "<PayloadFilter2 connectionTypeId=\"1\" scheduleId=\"2\""
                     " logFirstPduTimeout=\"3\" mode=\"4\" priority=\"5\" type=\"6\" rules=\"r\""
                     " severity=\"7\" identifier=\"i\" ruleContextId=\"8\"/>"));
    EXPECT_EQ(filter.m_ConnectionTypeId, 1);
    EXPECT_EQ(filter.m_ScheduleId, 2);
    EXPECT_EQ(filter.m_LogFirstPduTimeout, 3);
    EXPECT_EQ(filter.m_Mode, 4);
    EXPECT_EQ(filter.m_Priority, 5);
    EXPECT_EQ(filter.m_Type, 6);
    EXPECT_EQ(filter.m_Rules.ToString(), "r");
    EXPECT_EQ(filter.m_Severity, 7);
    EXPECT_EQ(filter.m_Identifier, "i");
    EXPECT_EQ(filter.m_RuleContextId, 8);
    EXPECT_TRUE(ReadOne("disableLog", "true", &CPayloadFilter::m_DisableLog));
    EXPECT_TRUE(ReadOne("logPacketDrop", "true", &CPayloadFilter::m_LogPacketDrop));
    EXPECT_TRUE(ReadOne("logPacketModify", "true", &CPayloadFilter::m_LogPacketModify));
    EXPECT_TRUE(ReadOne("includePacketData", "true", &CPayloadFilter::m_IncludePacketData));
    EXPECT_TRUE(ReadOne("debugMode", "true", &CPayloadFilter::m_DebugMode));
    EXPECT_TRUE(ReadOne("confidential", "true", &CPayloadFilter::m_Confidential));
}

TEST(PolicyMember, OfAProbeConfiguration) {
    CProbeConfiguration probe;
    ASSERT_TRUE(Read(probe,
                     "<ProbeConfiguration probeId=\"3\" blockAttackerSeconds=\"600\""
                     " notifyImmediately=\"true\"/>"));
    EXPECT_EQ(probe.m_ProbeId, CProbeConfiguration::SynFinScan);
    EXPECT_EQ(probe.m_BlockAttackerSeconds, 600);
    EXPECT_TRUE(probe.m_NotifyImmediately);
}

TEST(PolicyMember, OfSslElements) {
    CSSLCredential credential;
    ASSERT_TRUE(Read(credential,
                     "<SSLCredential id=\"1\" name=\"n\" credentialType=\"P12\" identifier=\"i\""
                     " passphrase=\"p\" details=\"d\" credential=\"c\"/>"));
    EXPECT_EQ(credential.m_Id, 1);
    EXPECT_EQ(credential.m_Name, "n");
    EXPECT_EQ(credential.m_CredentialType, "P12");
    EXPECT_EQ(credential.m_Identifier, "i");
    EXPECT_EQ(credential.m_Passphrase, "p");
    EXPECT_EQ(credential.m_Details, "d");
    EXPECT_EQ(credential.m_Credential, "c");

    CSSLHostConfiguration host;
    ASSERT_TRUE(Read(host,
                     "<SSLHostConfiguration allInterfaces=\"true\" sslCredentialId=\"2\""
                     " specificIP=\"s\"><AddressInfo ports=\"443\"/></SSLHostConfiguration>"));
    EXPECT_TRUE(host.m_AllInterfaces);
    EXPECT_EQ(host.m_SSLCredentialId, 2);
    EXPECT_EQ(host.m_SpecificIP, "s");
    EXPECT_EQ(host.m_AddressInfo.m_Ports, "443");

    using Assignment = CSSLHostConfigurationAssignment;
    EXPECT_EQ(ReadOne("sSLHostConfigurationId", "3", &Assignment::m_SSLHostConfigurationId), 3);
    EXPECT_EQ(ReadOne("interfaceId", "4", &Assignment::m_InterfaceId), 4);
}

TEST(PolicyNames, OfBasesAreEmpty) {
    EXPECT_STREQ(CIpPortInfo().GetElementName(), L"");
    EXPECT_STREQ(CFilterBase().GetElementName(), L"");
}

TEST(PolicyNames, OfTheElementsOfLists) {
    EXPECT_STREQ(CConnectionTypes().ChildElementName(), L"ConnectionType");
    EXPECT_STREQ(CPacketFilters().ChildElementName(), L"PacketFilter");
    EXPECT_STREQ(CPayloadFilters().ChildElementName(), L"PayloadFilter2");
    EXPECT_STREQ(CProbeConfigurations().ChildElementName(), L"ProbeConfiguration");
    EXPECT_STREQ(CSSLCredentials().ChildElementName(), L"SSLCredential");
    EXPECT_STREQ(CSSLHostConfigurations().ChildElementName(), L"SSLHostConfiguration");
    EXPECT_STREQ(CSSLHostConfigurationAssignments().ChildElementName(),
                 L"SSLHostConfigurationAssignment");
}

TEST(PolicyList, KeepsTheDocumentsOrder) {
    CSSLCredentials list;
    ASSERT_TRUE(Read(list,
                     "<SSLCredentials><SSLCredential id=\"5\"/><SSLCredential id=\"3\"/>"
                     "<SSLCredential id=\"5\"/></SSLCredentials>"));
    std::vector<int> ids;
    for (const VelmCore::XMLObject* child : list.Children()) {
        ids.push_back(dynamic_cast<const CSSLCredential*>(child)->m_Id);
    }
    EXPECT_EQ(ids, (std::vector<int>{5, 3, 5}));
}

class CaptureFilter : public ::testing::Test {
protected:
    CPacketFilter m_Filter;
};

TEST_F(CaptureFilter, WithActionLogGetsActionFive) {
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"VELM PCAP one\" filterAction=\"0\"/>"));
    EXPECT_EQ(m_Filter.m_FilterAction, 5);
}

TEST_F(CaptureFilter, WithoutActionGetsActionFiveAndIsWrittenWithIt) {
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"VELM PCAP\"/>"));
    EXPECT_EQ(m_Filter.m_FilterAction, 5);
    EXPECT_NE(Write(m_Filter).find(" filterAction=\"5\" "), std::string::npos);
}

TEST_F(CaptureFilter, WithAnotherActionKeepsIt) {
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"VELM PCAP\" filterAction=\"2\"/>"));
    EXPECT_EQ(m_Filter.m_FilterAction, 2);
}

TEST_F(CaptureFilter, IsToldByTheBeginningOfItsNameInCapitals) {
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"a VELM PCAP\" filterAction=\"0\"/>"));
    EXPECT_EQ(m_Filter.m_FilterAction, 0);
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"velm pcap\" filterAction=\"0\"/>"));
    EXPECT_EQ(m_Filter.m_FilterAction, 0);
}

TEST_F(CaptureFilter, EndAttributesIsAlwaysOne) {
    EXPECT_EQ(m_Filter.EndAttributes(), 1);
    m_Filter.m_Name = "VELM PCAP";
    EXPECT_EQ(m_Filter.EndAttributes(), 1);
    EXPECT_EQ(m_Filter.EndAttributes(), 1);
}

TEST_F(CaptureFilter, ReadAgainAsAnOrdinaryFilterHasNoAction) {
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"VELM PCAP\"/>"));
    ASSERT_TRUE(Read(m_Filter, "<PacketFilter name=\"ordinary\"/>"));
    EXPECT_EQ(m_Filter.m_FilterAction, 0);
    EXPECT_TRUE(m_Filter.IsAttributeNull(&m_Filter.m_FilterAction));
}

TEST(PacketFilterFlags, WithoutIcmpTypeAndCodeHaveMinusOne) {
    CPacketFilter filter;
    ASSERT_TRUE(Read(filter, "<PacketFilter><Flags tcpFlags=\"2\"/></PacketFilter>"));
    EXPECT_EQ(filter.m_Flags.m_IcmpType, -1);
    EXPECT_EQ(filter.m_Flags.m_IcmpCode, -1);
}

TEST(ProbeType, HasItsName) {
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(0)),
                 L"FingerprintScan");
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(1)),
                 L"HostOrPortScan");
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(2)), L"NullScan");
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(3)), L"SynFinScan");
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(4)), L"XmasScan");
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(5)),
                 L"UnknownProbeType");
}

TEST(ProbeType, OfAProbeConfigurationWithoutProbeIdIsUnknown) {
    CProbeConfiguration probe;
    ASSERT_TRUE(Read(probe, "<ProbeConfiguration/>"));
    EXPECT_EQ(probe.m_ProbeId, -1);
    EXPECT_STREQ(CProbeConfiguration::toString(CProbeConfiguration::_ProbeType(probe.m_ProbeId)),
                 L"UnknownProbeType");
}

TEST(PayloadFilterRules, AreWipedByEraseRules) {
    CPayloadFilter filter;
    filter.m_Rules = wxString("top secret");
    const wchar_t* memory = filter.m_Rules.Data();
    filter.EraseRules();
    EXPECT_TRUE(filter.m_Rules.IsEmpty());
    EXPECT_EQ(std::wstring(memory, 10), std::wstring(10, L'\0'));
}

}  // namespace
