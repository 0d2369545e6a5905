#include "Listing.h"

#include <arpa/inet.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Kdi {

namespace {

using Json = nlohmann::json;

// The member, or null where there is none.
const Json& Member(const Json& object, const char* name) {
    static const Json none;
    if (!object.is_object()) return none;
    const auto found = object.find(name);
    return found == object.end() ? none : *found;
}

// "192.0.2.66", or {"elem": {"val": "192.0.2.66", "timeout": 600, "expires": 599}}.
bool ReadElement(const Json& value, SetElement& element) {
    const Json& details = Member(value, "elem");
    const Json& address = details.is_null() ? value : Member(details, "val");
    if (!address.is_string()) return false;
    const auto& text = address.get_ref<const std::string&>();
    if (inet_pton(AF_INET, text.c_str(), &element.address) != 1) return false;
    const Json& expires = Member(details, "expires");
    element.expires_sec = UINT32_MAX;
    if (expires.is_number_unsigned()) {
        element.expires_sec =
            static_cast<uint32_t>(std::min<uint64_t>(expires.get<uint64_t>(), UINT32_MAX - 1));
    }
    return true;
}

const Json* FindSet(const Json& root) {
    for (const Json& object : Member(root, "nftables")) {
        const Json& set = Member(object, "set");
        if (set.is_object()) return &set;
    }
    return nullptr;
}

}  // namespace

bool ParseSetListing(const std::string& json, std::vector<SetElement>& elements,
                     std::string& error) {
    elements.clear();
    const Json root = Json::parse(json, nullptr, false);
    const Json* set = FindSet(root);
    if (!set) {
        error = root.is_discarded() ? "it is no JSON" : "it has no set";
        return false;
    }
    for (const Json& value : Member(*set, "elem")) {
        SetElement element;
        if (ReadElement(value, element)) elements.push_back(element);
    }
    return true;
}

std::map<std::string, uint64_t> ParseCounterListing(const std::string& json) {
    std::map<std::string, uint64_t> counters;
    const Json root = Json::parse(json, nullptr, false);
    for (const Json& object : Member(root, "nftables")) {
        const Json& counter = Member(object, "counter");
        const Json& name = Member(counter, "name");
        const Json& packets = Member(counter, "packets");
        if (name.is_string() && packets.is_number_unsigned())
            counters[name.get<std::string>()] = packets.get<uint64_t>();
    }
    return counters;
}

}  // namespace Kdi
