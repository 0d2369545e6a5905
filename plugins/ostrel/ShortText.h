#pragma once

#include <cstddef>
#include <memory_resource>
#include <string>

namespace OSTREL {

// A text whose memory comes from a ShortTextRoom.
using ShortText = std::pmr::string;

// Memory on the stack for a few short texts; the heap serves what does not fit. Outlives its texts.
class ShortTextRoom {
public:
    ShortText Make() { return ShortText(&m_Resource); }

private:
    static constexpr size_t kSize = 1024;

    alignas(std::max_align_t) std::byte m_Bytes[kSize];
    std::pmr::monotonic_buffer_resource m_Resource{m_Bytes, sizeof m_Bytes};
};

}  // namespace OSTREL
