#include "Privileges.h"

#include <cap-ng.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

namespace {

// Only what the process has can be kept.
void Keep(unsigned int capability, bool wanted) {
    if (wanted)
        capng_update(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED),
                     capability);
}

}  // namespace

std::string DropPrivileges(bool rawSockets) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return std::strerror(errno);
    if (capng_get_caps_process() != 0) return "the process's capabilities can't be read";
    const bool admin = capng_have_capability(CAPNG_PERMITTED, CAP_NET_ADMIN) != 0;
    const bool raw = rawSockets && capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW) != 0;
    const bool bounded = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) != 0;
    capng_clear(CAPNG_SELECT_BOTH);
    Keep(CAP_NET_ADMIN, admin);
    Keep(CAP_NET_RAW, raw);
    // Without CAP_SETPCAP the bounding set can't be made smaller; no program can gain from it.
    if (capng_apply(bounded ? CAPNG_SELECT_BOTH : CAPNG_SELECT_CAPS) != 0)
        return "the kernel refused to give up capabilities";
    return "";
}
