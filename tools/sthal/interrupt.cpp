#include "tools/sthal/interrupt.h"

#include <csignal>

namespace sthal {

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnInterrupt(int signal_number) {
    interrupted = 1;
    (void)std::signal(signal_number, SIG_DFL);
}

}  // namespace

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGINT, &action, nullptr);
    (void)sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() {
    return interrupted != 0;
}

}  // namespace sthal
