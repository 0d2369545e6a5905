// The policy's format: element names, attributes, their order and defaults.
#include "Xml.h"
#include "policy/ConnectionType.h"
#include "policy/PacketFilter.h"
#include "policy/PayloadFilter.h"
#include "policy/ProbeConfiguration.h"
#include "policy/SSLCredential.h"
#include "policy/SSLHostConfiguration.h"

namespace {

using namespace OSTREL;
using policy_test::ExpectRoundTrip;
using policy_test::Write;

template <typename Element>
std::string WriteNew() {
    Element element;
    return Write(element);
}

const char AN_END[] =
    " ipType=\"0\" ip=\"\" ipMask=\"\" ipFrom=\"\" ipTo=\"\" ipListId=\"0\" ipNot=\"false\""
    " mac=\"\" macListId=\"0\" macNot=\"false\" macType=\"0\" portType=\"0\" ports=\"\""
    " portListId=\"0\" portNot=\"false\"/>\n";

TEST(PolicyDefaults, AnAddressInfo) {
    EXPECT_EQ(WriteNew<CAddressInfo>(), std::string("<AddressInfo") + AN_END);
}

TEST(PolicyDefaults, ASourceInfo) {
    EXPECT_EQ(WriteNew<CSourceInfo>(), std::string("<SourceInfo") + AN_END);
}

TEST(PolicyDefaults, ADestInfo) {
    EXPECT_EQ(WriteNew<CDestInfo>(), std::string("<DestInfo") + AN_END);
}

TEST(PolicyDefaults, AConnectionType) {
    EXPECT_EQ(WriteNew<CConnectionType>(),
              std::string("<ConnectionType id=\"0\" name=\"\" description=\"\" direction=\"0\""
                          " protocol=\"0\" icmpType1=\"0\" icmpType2=\"0\" engine=\"\""
                          " virtualPortName=\"\">\n"
                          "  <AddressInfo") +
                  AN_END + "</ConnectionType>\n");
}

TEST(PolicyDefaults, PacketFilterFlags) {
    EXPECT_EQ(WriteNew<CPacketFilterFlags>(),
              "<Flags type=\"0\" anyFlags=\"false\" not=\"false\" tcpFlags=\"0\" icmpType=\"-1\""
              " icmpCode=\"-1\"/>\n");
}

TEST(PolicyDefaults, APacketFilterHasNoActionUntilItIsSet) {
    EXPECT_EQ(WriteNew<CPacketFilter>(),
              std::string("<PacketFilter id=\"0\" name=\"\" description=\"\" disableLog=\"false\""
                          " frameType=\"0\" frameTypeNot=\"false\" type=\"0\" logData=\"false\""
                          " logPduFirst=\"false\" logPduPeriod=\"0\" packetDirection=\"0\""
                          " priority=\"0\" protocol=\"0\" protocolNot=\"false\" scheduleId=\"0\""
                          " ruleContextId=\"0\">\n"
                          "  <SourceInfo") +
                  AN_END + "  <DestInfo" + AN_END +
                  "  <Flags type=\"0\" anyFlags=\"false\" not=\"false\" tcpFlags=\"0\""
                  " icmpType=\"-1\" icmpCode=\"-1\"/>\n"
                  "</PacketFilter>\n");
}

TEST(PolicyDefaults, APayloadFilter) {
    EXPECT_EQ(WriteNew<CPayloadFilter>(),
              "<PayloadFilter2 id=\"0\" name=\"\" description=\"\" connectionTypeId=\"0\""
              " scheduleId=\"0\" disableLog=\"false\" logPacketDrop=\"false\""
              " logPacketModify=\"false\" includePacketData=\"false\" debugMode=\"false\""
              " logFirstPduTimeout=\"0\" mode=\"0\" priority=\"0\" type=\"0\""
              " confidential=\"false\" rules=\"\" severity=\"0\" identifier=\"\""
              " ruleContextId=\"0\"/>\n");
}

TEST(PolicyDefaults, AProbeConfiguration) {
    EXPECT_EQ(WriteNew<CProbeConfiguration>(),
              "<ProbeConfiguration probeId=\"-1\" blockAttackerSeconds=\"0\""
              " notifyImmediately=\"false\"/>\n");
}

TEST(PolicyDefaults, AnSslCredential) {
    EXPECT_EQ(WriteNew<CSSLCredential>(),
              "<SSLCredential id=\"0\" name=\"\" credentialType=\"\" identifier=\"\""
              " passphrase=\"\" details=\"\" credential=\"\"/>\n");
}

TEST(PolicyDefaults, AnSslHostConfiguration) {
    EXPECT_EQ(WriteNew<CSSLHostConfiguration>(),
              std::string("<SSLHostConfiguration id=\"0\" name=\"\" allInterfaces=\"false\""
                          " sslCredentialId=\"0\" specificIP=\"\">\n"
                          "  <AddressInfo") +
                  AN_END + "</SSLHostConfiguration>\n");
}

TEST(PolicyDefaults, AnSslHostConfigurationAssignment) {
    EXPECT_EQ(WriteNew<CSSLHostConfigurationAssignment>(),
              "<SSLHostConfigurationAssignment sSLHostConfigurationId=\"0\" interfaceId=\"0\"/>\n");
}

TEST(PolicyDefaults, EmptyLists) {
    EXPECT_EQ(WriteNew<CConnectionTypes>(), "<ConnectionTypes/>\n");
    EXPECT_EQ(WriteNew<CPacketFilters>(), "<PacketFilters/>\n");
    EXPECT_EQ(WriteNew<CPayloadFilters>(), "<PayloadFilter2s/>\n");
    EXPECT_EQ(WriteNew<CProbeConfigurations>(), "<ProbeConfigurations/>\n");
    EXPECT_EQ(WriteNew<CSSLCredentials>(), "<SSLCredentials/>\n");
    EXPECT_EQ(WriteNew<CSSLHostConfigurations>(), "<SSLHostConfigurations/>\n");
    EXPECT_EQ(WriteNew<CSSLHostConfigurationAssignments>(), "<SSLHostConfigurationAssignments/>\n");
}

// All attributes of an end of a connection, none at its default.
const char FULL_END[] =
    " ipType=\"1\" ip=\"192.0.2.1\" ipMask=\"255.255.255.0\" ipFrom=\"192.0.2.2\""
    " ipTo=\"192.0.2.9\" ipListId=\"2\" ipNot=\"true\" mac=\"02:00:00:00:00:01\" macListId=\"3\""
    " macNot=\"true\" macType=\"4\" portType=\"5\" ports=\"80,443\" portListId=\"6\""
    " portNot=\"true\"/>\n";

TEST(PolicyRoundTrip, ConnectionTypes) {
    ExpectRoundTrip<CConnectionTypes>(
        std::string("<ConnectionTypes>\n"
                    "  <ConnectionType id=\"1\" name=\"web\" description=\"d\" direction=\"2\""
                    " protocol=\"6\" icmpType1=\"3\" icmpType2=\"4\" engine=\"e\""
                    " virtualPortName=\"v\">\n"
                    "    <AddressInfo") +
        FULL_END +
        "  </ConnectionType>\n"
        "</ConnectionTypes>\n");
}

TEST(PolicyRoundTrip, PacketFilters) {
    ExpectRoundTrip<CPacketFilters>(
        std::string("<PacketFilters>\n"
                    "  <PacketFilter id=\"7\" name=\"n\" description=\"d\" disableLog=\"true\""
                    " filterAction=\"2\" frameType=\"1\" frameTypeNot=\"true\" type=\"2\""
                    " logData=\"true\" logPduFirst=\"true\" logPduPeriod=\"3\""
                    " packetDirection=\"4\" priority=\"5\" protocol=\"6\" protocolNot=\"true\""
                    " scheduleId=\"7\" ruleContextId=\"8\">\n"
                    "    <SourceInfo") +
        FULL_END + "    <DestInfo" + FULL_END +
        "    <Flags type=\"1\" anyFlags=\"true\" not=\"true\" tcpFlags=\"2\" icmpType=\"3\""
        " icmpCode=\"4\"/>\n"
        "  </PacketFilter>\n"
        "</PacketFilters>\n");
}

TEST(PolicyRoundTrip, PayloadFilters) {
    ExpectRoundTrip<CPayloadFilters>(
        "<PayloadFilter2s>\n"
        "  <PayloadFilter2 id=\"1\" name=\"n\" description=\"d\" connectionTypeId=\"2\""
        " scheduleId=\"3\" disableLog=\"true\" logPacketDrop=\"true\" logPacketModify=\"true\""
        " includePacketData=\"true\" debugMode=\"true\" logFirstPduTimeout=\"4\" mode=\"5\""
        " priority=\"6\" type=\"7\" confidential=\"true\" rules=\"&lt;r&gt;&#10;\" severity=\"8\""
        " identifier=\"i\" ruleContextId=\"9\"/>\n"
        "  <PayloadFilter2 id=\"2\" name=\"\" description=\"\" connectionTypeId=\"0\""
        " scheduleId=\"0\" disableLog=\"false\" logPacketDrop=\"false\" logPacketModify=\"false\""
        " includePacketData=\"false\" debugMode=\"false\" logFirstPduTimeout=\"0\" mode=\"0\""
        " priority=\"0\" type=\"0\" confidential=\"false\" rules=\"\" severity=\"0\""
        " identifier=\"\" ruleContextId=\"0\"/>\n"
        "</PayloadFilter2s>\n");
}

TEST(PolicyRoundTrip, ProbeConfigurations) {
    ExpectRoundTrip<CProbeConfigurations>(
        "<ProbeConfigurations>\n"
        "  <ProbeConfiguration probeId=\"4\" blockAttackerSeconds=\"600\""
        " notifyImmediately=\"true\"/>\n"
        "</ProbeConfigurations>\n");
}

TEST(PolicyRoundTrip, SslCredentialsWithTheirLineEnds) {
    ExpectRoundTrip<CSSLCredentials>(
        "<SSLCredentials>\n"
        "  <SSLCredential id=\"3\" name=\"n\" credentialType=\"PEM\" identifier=\"i\""
        " passphrase=\"&quot;p&amp;&quot;\" details=\"&#9;\""
        " credential=\"-----BEGIN-----&#13;&#10;AA==&#10;\"/>\n"
        "</SSLCredentials>\n");
}

TEST(PolicyRoundTrip, SslHostConfigurations) {
    ExpectRoundTrip<CSSLHostConfigurations>(
        std::string("<SSLHostConfigurations>\n"
                    "  <SSLHostConfiguration id=\"1\" name=\"n\" allInterfaces=\"true\""
                    " sslCredentialId=\"3\" specificIP=\"192.0.2.1\">\n"
                    "    <AddressInfo") +
        FULL_END +
        "  </SSLHostConfiguration>\n"
        "</SSLHostConfigurations>\n");
}

TEST(PolicyRoundTrip, SslHostConfigurationAssignments) {
    ExpectRoundTrip<CSSLHostConfigurationAssignments>(
        "<SSLHostConfigurationAssignments>\n"
        "  <SSLHostConfigurationAssignment sSLHostConfigurationId=\"5\" interfaceId=\"-6\"/>\n"
        "</SSLHostConfigurationAssignments>\n");
}

TEST(PolicyRoundTrip, SourceAndDestination) {
    ExpectRoundTrip<CSourceInfo>(std::string("<SourceInfo") + FULL_END);
    ExpectRoundTrip<CDestInfo>(std::string("<DestInfo") + FULL_END);
}

}  // namespace
