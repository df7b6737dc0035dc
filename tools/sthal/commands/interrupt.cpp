#include "tools/sthal/commands/interrupt.h"

#include <atomic>
#include <csignal>
#include <ctime>

namespace sthal {

namespace {

// Who signals a whole process group reaches the program on the board also by way of the process
// that passes signals on to it: what comes this soon after the first one is the same wish.
constexpr std::time_t kSameWishSeconds = 1;

std::atomic<bool> interrupted{false};  // Set by signal handlers, read by any thread.
static_assert(std::atomic<bool>::is_always_lock_free);
volatile std::time_t first_seconds = 0;  // Of signal handlers only.

extern "C" void OnInterrupt(int signal_number) {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    if (!interrupted.exchange(true)) {
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
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) (void)sigaction(number, &action, nullptr);
}

bool Interrupted() {
    return interrupted;
}

}  // namespace sthal
