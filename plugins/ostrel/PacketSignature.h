#pragma once

#include <cstdint>

#include "policy/ProbeConfiguration.h"

namespace OSTREL {

constexpr CProbeConfiguration::_ProbeType kNoProbe =
    static_cast<CProbeConfiguration::_ProbeType>(-1);

// The probe that a TCP packet's flag byte gives away, or kNoProbe.
CProbeConfiguration::_ProbeType SignatureOf(uint8_t tcpFlags, bool dontFragment);

}  // namespace OSTREL
