// Bytes as the text of an address list: read as the plain reference reads it, and asked the same
// questions.

#include <cstdint>
#include <string>
#include <vector>

#include <wx/string.h>

#include "ConfigUtils.h"
#include "Input.h"
#include "LogData.h"
#include "ReferenceAddress.h"
#include "velm/Dom.h"

namespace {

using Fuzz::Require;

bool IsPlain(const std::string& text) {
    for (char c : text) {
        if (c <= 0) return false;
    }
    return true;
}

void Compare(VelmCore::CDom& dom, OSTREL::LogData& log, const std::string& text,
             const OSTREL::IpSpaceList& list, bool good) {
    std::vector<Reference::AddressEntry> expected;
    std::vector<Reference::Event> events;
    Require(Reference::ParseAddresses(text, "list", expected, events) == good, "same result");
    Require(Reference::TakeEvents(dom) == events, "same events");
    Require(list.size() == expected.size(), "same number of entries");
    size_t i = 0;
    for (const OSTREL::IpSpace& entry : list) {
        const Reference::AddressEntry& other = expected[i++];
        Require(
            entry.isRange == other.isRange && entry.low == other.low && entry.high == other.high,
            "same entries");
        for (uint32_t host : {entry.low, entry.high, ~entry.low, entry.high ^ 0x01000000u}) {
            Require(log.HostIsInList(host, &list) == Reference::Contains(expected, host),
                    "same answers");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static VelmCore::CDom dom;
    static OSTREL::LogData log(dom);
    const std::string text(reinterpret_cast<const char*>(data), size);
    OSTREL::IpSpaceList list;
    const bool good = OSTREL::ConfigUtils::ParseIpRange(
        wxString::FromUTF8(text.data(), text.size()), "list", L"ipList", list);
    if (IsPlain(text)) Compare(dom, log, text, list, good);
    dom.TakeEvents();
    return 0;
}
