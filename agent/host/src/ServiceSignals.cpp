#include "ServiceSignals.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

#include "Interrupt.h"

namespace {

int s_Descriptor = -1;

volatile std::sig_atomic_t s_Stop = 0;
volatile std::sig_atomic_t s_Reload = 0;

// A full counter is readable as well, so a write that fails loses nothing.
void Wake() {
    const int error = errno;
    const uint64_t one = 1;
    const ssize_t ignored = write(s_Descriptor, &one, sizeof(one));
    static_cast<void>(ignored);
    errno = error;
}

void NoteStop(int) {
    s_Stop = 1;
    Wake();
}

void NoteReload(int) {
    s_Reload = 1;
    Wake();
}

}  // namespace

void CatchServiceSignals() {
    s_Descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (s_Descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    HandleSignal(SIGTERM, NoteStop);
    HandleSignal(SIGINT, NoteStop);
    HandleSignal(SIGHUP, NoteReload);
    HandleSignal(SIGPIPE, SIG_IGN);
}

bool StopWanted() {
    return s_Stop != 0;
}

// A signal between the test and the store is one more request for what is about to be done.
bool TakeReload() {
    if (s_Reload == 0) return false;
    s_Reload = 0;
    return true;
}

int SignalDescriptor() {
    return s_Descriptor;
}

void TakeSignals() {
    uint64_t count = 0;
    while (read(s_Descriptor, &count, sizeof(count)) > 0) {
    }
}
