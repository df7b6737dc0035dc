#include "host/virtual_dsp/board/enter_board.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "host/virtual_dsp/board/board_root.h"
#include "host/virtual_dsp/nodes/fuse_mount.h"
#include "host/virtual_dsp/nodes/node_table.h"

namespace virtual_dsp {
namespace {

// Tells the program on the board which descriptor to report on that it has got there.
constexpr char kReportVariable[] = "VIRTUAL_BOARD_REPORT_FD";

// What this process passes on to the program on the board. bwrap, between the two, must not be
// ended by them: all three have them blocked until the program on the board unblocks them.
sigset_t PassedOnSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2}) {
        sigaddset(&signals, number);
    }
    return signals;
}

void Complain(const std::string& reason) {
    fprintf(stderr, "No virtual board: %s\n", reason.c_str());
}

struct Started {
    pid_t bwrap = -1;
    int report_fd = -1;
    int error = 0;  // An errno when there is no process.
};

// Runs `arguments` (the first one found in PATH) with the descriptor to report on in its
// environment. `quiet`: its standard error is thrown away.
Started Spawn(std::vector<std::string> arguments, bool quiet) {
    Started started;
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) return {.error = errno};
    setenv(kReportVariable, std::to_string(report[1]).c_str(), 1);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, report[1], report[1]);  // To stay open.
    if (quiet) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    const sigset_t blocked = PassedOnSignals();
    posix_spawnattr_setsigmask(&attributes, &blocked);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    started.error = posix_spawnp(&started.bwrap, pointers[0], &actions, &attributes,
                                 pointers.data(), environ);
    started.report_fd = report[0];
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(report[1]);
    unsetenv(kReportVariable);
    return started;
}

// The process id of the program on the board, once it is there; 0 when it does not get there.
pid_t AwaitReport(int report_fd) {
    pid_t reported = 0;
    ssize_t count;
    do {
        count = read(report_fd, &reported, sizeof(reported));
    } while (count < 0 && errno == EINTR);
    close(report_fd);
    return count == sizeof(reported) ? reported : 0;
}

// Passes signals on to `program` until `bwrap` has ended; returns its wait status.
int Supervise(pid_t bwrap, pid_t program) {
    sigset_t signals = PassedOnSignals();
    sigaddset(&signals, SIGCHLD);
    int status = 0;
    while (waitpid(bwrap, &status, WNOHANG) != bwrap) {
        siginfo_t info{};
        const int number = sigwaitinfo(&signals, &info);
        // What a terminal sends (Ctrl-C) it sends to the program as well.
        if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL) kill(program, number);
    }
    return status;
}

// Ends this process by the signal, as the program on the board was ended.
void DieOf(int number) {
    const rlimit no_core{};
    setrlimit(RLIMIT_CORE, &no_core);
    signal(number, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    raise(number);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
}

int StatusOf(int wait_status) {
    // bwrap tells the death of its program by a signal as shells do.
    const int status =
            WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
    if (status > 128 && status <= 128 + SIGRTMAX) DieOf(status - 128);
    return status;
}

int RunOnBoard(int argc, char** argv) {
    std::vector<std::string> command = BoardRootCommand();
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self));
    if (length < 0) {
        Complain(std::string("/proc/self/exe cannot be read: ") + strerror(errno));
        return kBoardUnavailable;
    }
    command.insert(command.end(), {"--", std::string(self, static_cast<size_t>(length))});
    command.insert(command.end(), argv + std::min(argc, 1), argv + argc);

    sigset_t blocked = PassedOnSignals();
    sigaddset(&blocked, SIGCHLD);
    signal(SIGCHLD, SIG_DFL);  // An inherited SIG_IGN would take the status away.
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    const Started started = Spawn(std::move(command), /*quiet=*/false);
    if (started.error != 0) {
        Complain(std::string("bwrap cannot be run: ") + strerror(started.error));
        return kBoardUnavailable;
    }
    const pid_t program = AwaitReport(started.report_fd);
    const int status = Supervise(started.bwrap, program != 0 ? program : started.bwrap);
    if (program != 0) return StatusOf(status);
    Complain(RootFailureAdvice());
    return kBoardUnavailable;
}

// On the board, in the program that EnterBoard() has started there: tells it so and takes signals
// again. Nothing to do in a program that was started on the board by another one.
void Report() {
    const char* text = getenv(kReportVariable);
    if (text == nullptr) return;
    int fd = -1;
    std::from_chars(text, text + strlen(text), fd);
    const pid_t self = getpid();
    (void)!write(fd, &self, sizeof(self));
    close(fd);
    unsetenv(kReportVariable);
    const sigset_t signals = PassedOnSignals();
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

host::Result<void> TryMount() {
    const auto fd = MountFuse(kBoardDirectory);
    if (!fd.ok()) {
        return host::Error(fd.error() + "\n  In a container: start it with --device /dev/fuse");
    }
    UnmountFuse(kBoardDirectory);
    return {};
}

}  // namespace

std::optional<int> EnterBoard(int argc, char** argv) {
    if (!IsOnBoard()) {
        if (const auto needs = CheckBoardNeeds(); !needs.ok()) {
            Complain(needs.error());
            return kBoardUnavailable;
        }
        return RunOnBoard(argc, argv);
    }
    const bool first = getenv(kReportVariable) != nullptr;
    Report();
    if (first) {
        if (const auto mounted = TryMount(); !mounted.ok()) {
            Complain(mounted.error());
            return kBoardUnavailable;
        }
    }
    return std::nullopt;
}

host::Result<void> CheckBoardAvailable() {
    if (IsOnBoard()) return {};
    if (auto needs = CheckBoardNeeds(); !needs.ok()) return needs;
    std::vector<std::string> command = BoardRootCommand();
    command.insert(command.end(), {"--", "true"});
    const Started started = Spawn(std::move(command), /*quiet=*/true);
    if (started.error != 0) {
        return host::Error(std::string("bwrap cannot be run: ") + strerror(started.error));
    }
    close(started.report_fd);
    int status = 0;
    while (waitpid(started.bwrap, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
    return host::Error(RootFailureAdvice());
}

}  // namespace virtual_dsp
