// Bytes as nftables' JSON listing of a set, and of counters.

#include <cstdint>
#include <string>
#include <vector>

#include "Input.h"
#include "Listing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string json(reinterpret_cast<const char*>(data), size);
    std::vector<Kdi::SetElement> elements;
    std::string error;
    const bool good = Kdi::ParseSetListing(json, elements, error);
    Fuzz::Require(good == error.empty(), "a reason for each refusal");
    Fuzz::Require(good || elements.empty(), "nothing of what was refused");
    Kdi::ParseCounterListing(json);
    return 0;
}
