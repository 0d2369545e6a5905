#include "Interrupt.h"

#include <csignal>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t s_Interrupted = 0;

void Note(int) {
    s_Interrupted = 1;
}

}  // namespace

void HandleSignal(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void CatchInterrupts() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        HandleSignal(signal, Note);
    HandleSignal(SIGPIPE, SIG_IGN);
}

bool Interrupted() {
    return s_Interrupted != 0;
}
