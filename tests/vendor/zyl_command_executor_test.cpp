#include "audio/hal/utils/zyl/zyl_command_executor.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace {

using std::chrono::steady_clock;
using ::vendor::quarno::brindlecove::audio::hal::utils::File;
using ::vendor::quarno::brindlecove::audio::hal::utils::zyl::ZylCommandExecutor;
using namespace std::string_view_literals;

constexpr std::string_view kCommand = "\0\7\14\0\105\1\0\0\2\0\0\0"sv;
constexpr std::string_view kReply = "\0\7\14\0\105\1\0\0ABCD"sv;
constexpr std::string_view kEarlierSequence = "\0\6\14\0\105\1\0\0late"sv;
constexpr std::string_view kEarlierId = "\0\7\10\0\106\1\0\0"sv;

// A terminal in raw mode is the device: what the test puts in at the far end waits there to be read
// as the answer.
class ZylCommandExecutorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        far_end_ = posix_openpt(O_RDWR | O_NOCTTY);
        if (far_end_ < 0 || grantpt(far_end_) != 0 || unlockpt(far_end_) != 0) {
            GTEST_SKIP() << "no pseudo-terminal can be had here";
        }
        const std::string path = ptsname(far_end_);
        near_end_ = open(path.c_str(), O_RDWR | O_NOCTTY);
        termios mode = {};
        tcgetattr(near_end_, &mode);
        cfmakeraw(&mode);
        tcsetattr(near_end_, TCSANOW, &mode);
        executor_ = std::make_unique<ZylCommandExecutor>(
                std::make_unique<File>(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY));
        ASSERT_EQ(0, executor_->Open());
    }
    ~ZylCommandExecutorTest() override {
        close(near_end_);
        close(far_end_);
    }

    // Puts the answers in, executes kCommand and keeps what became of its buffer.
    int Execute(std::string_view answers) {
        const ssize_t written = write(far_end_, answers.data(), answers.size());
        EXPECT_EQ(answers.size(), static_cast<size_t>(written));
        buffer_ = kCommand;
        return executor_->Execute(buffer_.data(), static_cast<int>(buffer_.size()));
    }

    int far_end_ = -1;
    int near_end_ = -1;
    std::string buffer_;
    std::unique_ptr<ZylCommandExecutor> executor_;
};

TEST_F(ZylCommandExecutorTest, ReplyIsTakenAndLateOnesBeforeItAreSkipped) {
    EXPECT_EQ(0, Execute(std::string(kEarlierSequence).append(kEarlierSequence).append(kReply)));
    EXPECT_EQ(kReply, buffer_);

    char sent[64];
    const ssize_t count = read(far_end_, sent, sizeof(sent));
    EXPECT_EQ(kCommand, std::string_view(sent, static_cast<size_t>(count)));
}

TEST_F(ZylCommandExecutorTest, MissingReplyIsWaitedForAlsoAfterALateOne) {
    for (const std::string_view late : {""sv, kEarlierSequence, kEarlierId}) {
        const auto start = steady_clock::now();
        EXPECT_EQ(-ETIMEDOUT, Execute(late));
        EXPECT_GE(steady_clock::now() - start, ZylCommandExecutor::kReplyTimeout);
        EXPECT_EQ(kCommand, buffer_);
        EXPECT_EQ(0, Execute(kReply)) << "an answer makes the next wait a whole one again";
    }
}

TEST_F(ZylCommandExecutorTest, SilentDspIsNotWaitedForOncePerCommand) {
    const auto start = steady_clock::now();
    for (int command = 0; command < 1000; ++command) ASSERT_EQ(-ETIMEDOUT, Execute(""));
    EXPECT_LT(steady_clock::now() - start, 2 * ZylCommandExecutor::kSilenceLimit);
    EXPECT_EQ(0, Execute(kReply)) << "an answer that is there at once counts all the same";
    const auto answered = steady_clock::now();
    EXPECT_EQ(-ETIMEDOUT, Execute(""));
    EXPECT_GE(steady_clock::now() - answered, ZylCommandExecutor::kReplyTimeout);
}

TEST_F(ZylCommandExecutorTest, DspThatIsBackIsWaitedForAgain) {
    const auto exhaust = [this] {
        for (int command = 0; command < 10; ++command) ASSERT_EQ(-ETIMEDOUT, Execute(""));
    };
    const auto execute_with_slow_dsp = [this] {
        std::thread dsp([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            (void)!write(far_end_, kReply.data(), kReply.size());
        });
        const int result = Execute("");
        dsp.join();
        return result;
    };
    exhaust();
    std::this_thread::sleep_for(ZylCommandExecutor::kSilencePause);
    EXPECT_EQ(0, execute_with_slow_dsp()) << "it was left alone for a while";

    exhaust();
    // A long download, or a framework that tries again and again.
    using std::chrono::milliseconds;
    const auto row_end = steady_clock::now() + ZylCommandExecutor::kSilentRow - milliseconds(50);
    while (steady_clock::now() < row_end) {
        std::this_thread::sleep_for(milliseconds(5));
        const auto sent = steady_clock::now();
        ASSERT_EQ(-ETIMEDOUT, Execute(""));
        ASSERT_LT(steady_clock::now() - sent, ZylCommandExecutor::kReplyTimeout);
    }
    std::this_thread::sleep_for(milliseconds(60));
    EXPECT_EQ(0, execute_with_slow_dsp()) << "given up for ever";

    exhaust();
    executor_->Close();
    EXPECT_EQ(-EBADF, Execute("")) << "a device that refuses is not silent";
    ASSERT_EQ(0, executor_->Open());
    EXPECT_EQ(0, execute_with_slow_dsp());
}

TEST_F(ZylCommandExecutorTest, LateRepliesDoNotProlongTheWait) {
    std::atomic<bool> done = false;
    std::thread dsp([&] {
        for (int count = 0; count < 200 && !done; ++count) {
            (void)!write(far_end_, kEarlierSequence.data(), kEarlierSequence.size());
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const auto start = steady_clock::now();
    EXPECT_EQ(-ETIMEDOUT, Execute(""));
    EXPECT_LT(steady_clock::now() - start, 5 * ZylCommandExecutor::kReplyTimeout);
    done = true;
    dsp.join();
}

TEST_F(ZylCommandExecutorTest, TornReplyIsAnErrorAndLeavesTheCommand) {
    for (const std::string_view torn : {kReply.substr(0, 3), kReply.substr(0, 8),
                                        kReply.substr(0, 11), "\0\7\15\0\105\1\0\0ABCD"sv}) {
        EXPECT_EQ(-EIO, Execute(torn)) << torn.size() << " bytes";
        EXPECT_EQ(kCommand, buffer_);
    }
}

TEST_F(ZylCommandExecutorTest, CommandThatCannotBeSentIsRefused) {
    std::string command = std::string(kCommand) + '\0';
    EXPECT_EQ(-EINVAL, executor_->Execute(command.data(), 13)) << "the header says 12";
    EXPECT_EQ(-EINVAL, executor_->Execute(command.data(), 7));
    EXPECT_EQ(-EMSGSIZE, executor_->Execute(command.data(), 65536));
    executor_->Close();
    EXPECT_EQ(-EBADF, Execute(""));

    ZylCommandExecutor full(std::make_unique<File>("/dev/full", O_RDWR | O_NONBLOCK));
    ASSERT_EQ(0, full.Open());
    EXPECT_EQ(-ENOSPC, full.Execute(command.data(), 12));
}

}  // namespace
