#include "tools/sthal/interrupt.h"

#include <csignal>
#include <ctime>

namespace sthal {

namespace {

// Who signals a whole process group reaches the program on the board also by way of the process
// that passes signals on to it: what comes this soon after the first one is the same wish.
constexpr std::time_t kSameWishSeconds = 1;

volatile std::sig_atomic_t interrupted = 0;
volatile std::time_t first_seconds = 0;  // Of signal handlers only.

extern "C" void OnInterrupt(int signal_number) {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    if (interrupted == 0) {
        interrupted = 1;
        first_seconds = now.tv_sec;
    } else if (now.tv_sec - first_seconds > kSameWishSeconds) {
        (void)std::signal(signal_number, SIG_DFL);
        (void)std::raise(signal_number);
    }
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
