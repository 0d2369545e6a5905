#pragma once

#include "kdi/kdi.h"

// For tests only: faults that the real driver may show.
extern "C" {

// Lets the next kdi_add_blacklist of the process return `error`, whatever its handle, and keep
// nothing. 0 takes it back.
KDI_API void kdi_testing_fail_blacklist(int error);
}
