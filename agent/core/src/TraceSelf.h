#pragma once

#include <wx/string.h>

#include "velm/Trace.h"

// One trace line of the core's own component.
#define VELM_CORE_TRACE(...)                                                  \
    do {                                                                      \
        if (VelmCore::LogTraceIsEnabled(L"velm.core"))                        \
            VelmCore::LogTrace("velm.core", __FILE__, __LINE__, __FUNCTION__, \
                               wxString::Format(__VA_ARGS__));                \
    } while (false)
