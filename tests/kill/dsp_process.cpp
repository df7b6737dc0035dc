#include "tests/kill/dsp_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <utility>

namespace virtual_dsp {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Only ends a test that hangs.
constexpr milliseconds kPatience{60'000};

void CloseOnce(int& fd) {
    if (fd >= 0) close(std::exchange(fd, -1));
}

}  // namespace

DspProcess::~DspProcess() {
    CloseOnce(requests_);
    Await();
    CloseOnce(answers_);
}

void DspProcess::Start() {
    int in[2];
    int out[2];
    ASSERT_EQ(0, pipe2(in, O_CLOEXEC));
    ASSERT_EQ(0, pipe2(out, O_CLOEXEC));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::string words[] = {STHAL, "dsp", "--control", "--speed", "0"};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                         words[3].data(), words[4].data(), nullptr};
    const int error = posix_spawn(&process_, arguments[0], &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    requests_ = in[1];
    answers_ = out[0];
    ASSERT_EQ(0, error) << STHAL;
    const std::string line = ReadLine();
    ASSERT_TRUE(line.starts_with("ready")) << line;
}

std::string DspProcess::Answer(const std::string& verb) {
    const std::string line = verb + "\n";
    EXPECT_EQ(static_cast<ssize_t>(line.size()), write(requests_, line.data(), line.size()));
    // What the verb shows comes before it.
    std::string answer;
    do {
        answer = ReadLine();
    } while (answer.starts_with(' '));
    return answer;
}

std::string DspProcess::ReadLine() {
    const auto deadline = steady_clock::now() + kPatience;
    while (steady_clock::now() < deadline) {
        const size_t end = pending_.find('\n');
        if (end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return line;
        }
        pollfd wait{.fd = answers_, .events = POLLIN, .revents = 0};
        if (poll(&wait, 1, static_cast<int>(kPatience.count())) <= 0) continue;
        char bytes[512];
        const ssize_t count = read(answers_, bytes, sizeof(bytes));
        if (count <= 0) return "the process has ended";
        pending_.append(bytes, static_cast<size_t>(count));
    }
    return "no answer in time";
}

void DspProcess::Kill() {
    if (process_ > 0) kill(process_, SIGKILL);
    Await();
    CloseOnce(requests_);
    CloseOnce(answers_);
    pending_.clear();
}

void DspProcess::Await() {
    if (process_ <= 0) return;
    pollfd end{.fd = static_cast<int>(syscall(SYS_pidfd_open, process_, 0)),
               .events = POLLIN,
               .revents = 0};
    EXPECT_GE(end.fd, 0);
    if (poll(&end, 1, static_cast<int>(kPatience.count())) != 1) {
        ADD_FAILURE() << "process " << process_ << " does not end";
        kill(process_, SIGKILL);
    }
    close(end.fd);
    waitpid(std::exchange(process_, -1), nullptr, 0);
}

size_t MountCount() {
    std::ifstream mounts("/proc/self/mountinfo");
    return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(mounts), {}, '\n'));
}

}  // namespace virtual_dsp
