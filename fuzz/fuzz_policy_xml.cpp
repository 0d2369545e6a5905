// Arbitrary bytes as policy XML: reads them as every list and element of the policy. What was read
// is written, and must read back and write as the same bytes again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <wx/mstream.h>
#include <wx/xml/xml.h>

#include "XmlParse.h"
#include "policy/ConnectionType.h"
#include "policy/PacketFilter.h"
#include "policy/PayloadFilter.h"
#include "policy/ProbeConfiguration.h"
#include "policy/SSLCredential.h"
#include "policy/SSLHostConfiguration.h"

namespace {

using namespace OSTREL;

void Require(bool holds) {
    if (!holds) abort();
}

std::string Write(VelmCore::XMLObject& object) {
    wxMemoryOutputStream stream;
    object.ToXML(stream, 0, false);
    std::string bytes(stream.GetLength(), '\0');
    stream.CopyTo(&bytes[0], bytes.size());
    return bytes;
}

template <typename Element>
void TryAs(const wxXmlNode& root) {
    Element element;
    const bool read = element.ReadFromNode(root) == 0;
    Require(element.ParseComplete() == read);
    Require(element.ParseError().empty() == read);
    const std::string written = Write(element);
    Element again;
    Require(again.FromXML(wxString::FromUTF8(written.data(), written.size()), nullptr) == 0);
    Require(Write(again) == written);
    Element copy;
    Require(copy.CopyFrom(element));
    Require(Write(copy) == written);
}

template <typename... Elements>
void TryAsEach(const wxXmlNode& root) {
    (TryAs<Elements>(root), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(data, data + size);
    wxXmlDocument document;
    wxString reason;
    if (!VelmCore::ParseXml(bytes, document, reason)) {
        Require(!reason.empty());
        return 0;
    }
    TryAsEach<CAddressInfo, CSourceInfo, CDestInfo, CConnectionType, CConnectionTypes,
              CPacketFilterFlags, CPacketFilter, CPacketFilters, CPayloadFilter, CPayloadFilters,
              CProbeConfiguration, CProbeConfigurations, CSSLCredential, CSSLCredentials,
              CSSLHostConfiguration, CSSLHostConfigurations, CSSLHostConfigurationAssignment,
              CSSLHostConfigurationAssignments>(*document.GetRoot());
    return 0;
}
