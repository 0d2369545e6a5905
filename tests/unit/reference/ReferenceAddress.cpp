#include "ReferenceAddress.h"

#include <arpa/inet.h>

#include <cstdlib>

namespace Reference {

namespace {

// The non-empty pieces of `text` between any of the separators.
std::vector<std::string> Pieces(const std::string& text, const std::string& separators) {
    std::vector<std::string> pieces(1);
    for (char c : text) {
        if (separators.find(c) == std::string::npos) {
            pieces.back() += c;
        } else if (!pieces.back().empty()) {
            pieces.emplace_back();
        }
    }
    if (pieces.back().empty()) pieces.pop_back();
    return pieces;
}

uint32_t Address(const std::string& text) {
    return inet_addr(text.c_str());
}

AddressEntry Wildcard(const std::string& token) {
    std::string address;
    std::string mask;
    int count = 0;
    for (const std::string& octet : Pieces(token, ".")) {
        if (count++ > 0) {
            address += ".";
            mask += ".";
        }
        address += octet == "*" ? "0" : octet;
        mask += octet == "*" ? "0" : "255";
    }
    for (; count < 4; ++count) {
        address += count > 0 ? ".0" : "0";
        mask += count > 0 ? ".0" : "0";
    }
    return {false, Address(address), Address(mask)};
}

Event BadToken(const std::string& token, size_t width, std::string listName) {
    for (char& c : listName) {
        if (c == '|') c = '/';
    }
    return {2019, token.substr(0, width) + "|" + listName.substr(0, 128) + "|${ipList}"};
}

// A prefix length as a mask in network order, bit by bit. 0 if it is out of range.
uint32_t PrefixMask(const std::string& text) {
    const long bits = strtol(text.c_str(), nullptr, 10);
    uint32_t mask = 0;
    if (bits < 1 || bits > 32) return mask;
    for (long i = 0; i < bits; ++i)
        mask |= 0x80000000u >> i;
    return htonl(mask);
}

}  // namespace

bool ParseAddresses(const std::string& items, const std::string& listName,
                    std::vector<AddressEntry>& entries, std::vector<Event>& events) {
    entries.clear();
    bool good = true;
    for (const std::string& token : Pieces(items, ", ")) {
        size_t at = token.find('-');
        const bool isRange = at != std::string::npos;
        if (!isRange) at = token.find('/');
        if (at == std::string::npos) {
            entries.push_back(Wildcard(token));
            continue;
        }
        const std::string before = token.substr(0, at);
        const std::string behind = token.substr(at + 1);
        if (before.empty() || behind.empty()) {
            events.push_back(BadToken(token, 64, listName));
            good = false;
        } else if (isRange || behind.find('.') != std::string::npos) {
            entries.push_back({isRange, Address(before), Address(behind)});
        } else if (PrefixMask(behind) != 0) {
            entries.push_back({false, Address(before), PrefixMask(behind)});
        } else {
            events.push_back(BadToken(token, 128, listName));
            good = false;
        }
    }
    return good;
}

bool Contains(const std::vector<AddressEntry>& entries, uint32_t address) {
    for (const AddressEntry& entry : entries) {
        const uint32_t host = ntohl(address);
        const uint32_t low = ntohl(entry.low);
        const uint32_t high = ntohl(entry.high);
        if (entry.isRange ? host >= low && host <= high : (host & high) == (low & high))
            return true;
    }
    return false;
}

}  // namespace Reference
