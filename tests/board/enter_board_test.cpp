#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "host/virtual_dsp/board/enter_board.h"

namespace virtual_dsp {
namespace {

// Off the board: starts shell scripts on one.
class EnterBoardTest : public ::testing::Test {
  protected:
    // Ends with 55 when it gets one of the two signals; says when it is ready for them.
    static constexpr char kWaiting[] =
            "trap 'exit 55' TERM INT; echo ready; while :; do sleep 0.02; done";

    void SetUp() override {
        if (const auto board = CheckBoardAvailable(); !board.ok()) GTEST_SKIP() << board.error();
        ASSERT_EQ(0, pipe2(output_, O_CLOEXEC));
    }
    void TearDown() override { close(output_[0]); }

    pid_t Start(const char* script) {
        const pid_t child = fork();
        if (child != 0) {
            close(output_[1]);
            return child;
        }
        setpgid(0, 0);  // As a shell's job.
        dup2(output_[1], STDOUT_FILENO);
        execl(RUN_ON_BOARD, RUN_ON_BOARD, "sh", "-c", script, nullptr);
        _exit(127);
    }
    // What the script has written; empty when all that might write are gone.
    std::string Read() const {
        char text[64];
        const ssize_t count = read(output_[0], text, sizeof(text));
        return {text, static_cast<size_t>(std::max<ssize_t>(count, 0))};
    }
    // The exit status, or the negative number of the signal.
    static int ResultOf(pid_t child) {
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    int output_[2] = {-1, -1};
};

TEST_F(EnterBoardTest, ExitStatusIsPassedOn) {
    EXPECT_EQ(3, ResultOf(Start("test -L /dev/zcd-sound_trigger && exit 3")));
}

TEST_F(EnterBoardTest, DeathByASignalIsPassedOn) {
    EXPECT_EQ(-SIGABRT, ResultOf(Start("kill -ABRT $$")));
}

TEST_F(EnterBoardTest, SignalToTheStarterReachesTheProgram) {
    const pid_t child = Start(kWaiting);
    ASSERT_EQ("ready\n", Read());

    kill(child, SIGTERM);

    EXPECT_EQ(55, ResultOf(child));
}

TEST_F(EnterBoardTest, SignalToTheWholeJobLeavesTheProgramTimeToEnd) {
    const pid_t child = Start(kWaiting);
    ASSERT_EQ("ready\n", Read());

    kill(-child, SIGINT);

    EXPECT_EQ(55, ResultOf(child));
}

TEST_F(EnterBoardTest, TheProgramDoesNotOutliveAKilledStarter) {
    const pid_t child = Start("echo ready; exec sleep 1000");
    ASSERT_EQ("ready\n", Read());

    kill(child, SIGKILL);

    EXPECT_EQ(-SIGKILL, ResultOf(child));
    EXPECT_EQ("", Read());
}

}  // namespace
}  // namespace virtual_dsp
