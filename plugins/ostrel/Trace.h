#pragma once

#include <wx/string.h>

#include "velm/Trace.h"

// Writes a trace line; the text is only built while the component is on.
#define OSTREL_TRACE(component, ...)                                        \
    do {                                                                    \
        if (VelmCore::LogTraceIsEnabled(component)) {                       \
            VelmCore::LogTrace(component, __FILE__, __LINE__, __FUNCTION__, \
                               wxString::Format(__VA_ARGS__));              \
        }                                                                   \
    } while (false)
