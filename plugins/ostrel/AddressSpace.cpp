#include <arpa/inet.h>

#include <cstdlib>

#include "ConfigUtils.h"
#include "Tokenize.h"
#include "velm/Dom.h"
#include "velm/Text.h"

namespace OSTREL {

namespace {

const wchar_t* const s_szDelimiters = L", ";
const wchar_t* const szDelims = L".";

uint32_t Address(const wxString& text) {
    // A text that is no address gives all ones, here as everywhere: a useless entry, no error.
    return inet_addr(text.utf8_str());
}

void AppendOctet(wxString& text, const wxString& octet) {
    if (!text.empty()) text += '.';
    text += octet;
}

// "10.1.*.*", "10.1", "10.1.2.3": missing octets are wildcards.
IpSpace WildcardEntry(const wxString& token) {
    std::list<wxString> octets;
    Tokenize(octets, token, szDelims);
    while (octets.size() < 4)
        octets.push_back("*");
    wxString address;
    wxString mask;
    for (const wxString& octet : octets) {
        const bool any = octet == "*";
        AppendOctet(address, any ? wxString("0") : octet);
        AppendOctet(mask, any ? "0" : "255");
    }
    return {false, Address(address), Address(mask)};
}

// The parts of `token` in front of and behind its first `separator`. False if one is empty.
bool Split(const wxString& token, wchar_t separator, wxString& before, wxString& behind) {
    before = token.BeforeFirst(separator);
    behind = token.AfterFirst(separator);
    return !before.empty() && !behind.empty();
}

}  // namespace

bool ConfigUtils::ToIPMask(const wxString& maskText, const wxString& token,
                           const wxString& listName, const wchar_t* kind, unsigned int& mask) {
    mask = 0;
    if (maskText.find('.') != wxString::npos) {
        mask = Address(maskText);
        return true;
    }
    const long bits = strtol(maskText.utf8_str(), nullptr, 10);
    if (bits < 1 || bits > 32) {
        VelmCore::CDom::LogAgentEvent(0, 2019, "%.128s|%.128s|${%.64s}", token,
                                      VelmCore::ReplaceBars(listName), kind);
        return false;
    }
    mask = htonl(0xFFFFFFFFu << (32 - bits));
    return true;
}

bool ConfigUtils::ParseIpRange(const wxString& items, const wxString& listName, const wchar_t* kind,
                               IpSpaceList& out) {
    out.clear();
    std::list<wxString> tokens;
    Tokenize(tokens, items, s_szDelimiters);
    bool allGood = true;
    for (const wxString& token : tokens) {
        const bool isRange = token.find('-') != wxString::npos;
        const bool isMask = !isRange && token.find('/') != wxString::npos;
        wxString before;
        wxString behind;
        if (!isRange && !isMask) {
            out.push_back(WildcardEntry(token));
        } else if (!Split(token, isRange ? '-' : '/', before, behind)) {
            VelmCore::CDom::LogAgentEvent(0, 2019, "%.64s|%.128s|${%.64s}", token,
                                          VelmCore::ReplaceBars(listName), kind);
            allGood = false;
        } else if (isRange) {
            out.push_back({true, Address(before), Address(behind)});
        } else {
            unsigned int mask;
            if (ToIPMask(behind, token, listName, kind, mask)) {
                out.push_back({false, Address(before), mask});
            } else {
                allGood = false;
            }
        }
    }
    return allGood;
}

bool ListContains(const IpSpaceList* list, uint32_t ip) {
    if (list == nullptr) return false;
    for (const IpSpace& entry : *list) {
        if (entry.isRange) {
            const uint32_t address = ntohl(ip);
            if (ntohl(entry.low) <= address && address <= ntohl(entry.high)) return true;
        } else if (((ip ^ entry.low) & entry.high) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace OSTREL
