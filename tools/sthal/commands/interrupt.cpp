#include "tools/sthal/commands/interrupt.h"

#include <atomic>
#include <csignal>
#include <ctime>
#include <initializer_list>

namespace sthal {

namespace {

// Who signals a whole process group reaches the program on the board also by way of the process
// that passes signals on to it: what comes this soon after the first one is the same wish.
constexpr std::time_t kSameWishSeconds = 1;

// Set by signal handlers, read by any thread.
std::atomic<bool> interrupted{false};
std::atomic<bool> line_interrupted{false};
std::atomic<int> terminal_change{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);
volatile std::time_t first_seconds = 0;  // Of signal handlers only.

extern "C" void OnInterrupt(int number) {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    if (!interrupted.exchange(true)) {
        first_seconds = now.tv_sec;
    } else if (now.tv_sec - first_seconds > kSameWishSeconds) {
        (void)std::signal(number, SIG_DFL);
        (void)std::raise(number);
    }
}

extern "C" void OnLineInterrupt(int /*number*/) {
    line_interrupted = true;
}

extern "C" void OnTerminalChange(int number) {
    terminal_change = number;
}

void Catch(std::initializer_list<int> numbers, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int number : numbers) (void)sigaction(number, &action, nullptr);
}

}  // namespace

void CatchInterrupts() {
    Catch({SIGINT, SIGTERM, SIGHUP}, OnInterrupt);
}

bool Interrupted() {
    return interrupted;
}

void CatchSignalsOfTerminal() {
    Catch({SIGINT}, OnLineInterrupt);
    Catch({SIGWINCH, SIGCONT}, OnTerminalChange);
}

bool LineInterrupted() {
    return line_interrupted || Interrupted();
}

bool TakeLineInterrupt() {
    return line_interrupted.exchange(false);
}

int TakeTerminalChange() {
    return terminal_change.exchange(0);
}

}  // namespace sthal
