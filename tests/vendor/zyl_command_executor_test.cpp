#include "audio/hal/utils/zyl/zyl_command_executor.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::vendor::quarno::brindlecove::audio::hal::utils::File;
using ::vendor::quarno::brindlecove::audio::hal::utils::zyl::ZylCommandExecutor;
using namespace std::string_view_literals;

constexpr std::string_view kCommand = "\0\7\14\0\105\1\0\0\2\0\0\0"sv;
constexpr std::string_view kReply = "\0\7\14\0\105\1\0\0ABCD"sv;
constexpr std::string_view kEarlierSequence = "\0\6\14\0\105\1\0\0late"sv;
constexpr std::string_view kEarlierId = "\0\7\10\0\106\1\0\0"sv;

// Each wait for an answer that the executor asks for, with its time.
std::vector<milliseconds> waits;
// Called at the beginning of each, unless empty.
std::function<void()> during_wait;

int CountWait(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
    static const auto wait = reinterpret_cast<decltype(&ppoll)>(dlsym(RTLD_NEXT, "ppoll"));
    if (timeout == nullptr || timeout->tv_sec > 0 || timeout->tv_nsec > 0) {
        const auto time =
                timeout == nullptr
                        ? milliseconds::max()
                        : milliseconds(timeout->tv_sec * 1000 + timeout->tv_nsec / 1'000'000);
        waits.push_back(time);
        if (during_wait) during_wait();
    }
    return wait(fds, count, timeout, signals);
}

}  // namespace

// Stands before the C library's, for File.
extern "C" int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
    return CountWait(fds, count, timeout, signals);
}

namespace {

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
        waits.clear();
    }
    ~ZylCommandExecutorTest() override {
        during_wait = {};
        close(near_end_);
        close(far_end_);
    }

    // Puts the answers in, executes kCommand and keeps what became of its buffer.
    int Execute(std::string_view answers) {
        // Of earlier commands. Their device takes no more when it is full of them.
        pollfd sent{.fd = far_end_, .events = POLLIN, .revents = 0};
        for (char bytes[256]; poll(&sent, 1, 0) == 1;) (void)!read(far_end_, bytes, sizeof(bytes));
        const ssize_t written = write(far_end_, answers.data(), answers.size());
        EXPECT_EQ(answers.size(), static_cast<size_t>(written));
        waits.clear();
        buffer_ = kCommand;
        return executor_->Execute(buffer_.data(), static_cast<int>(buffer_.size()));
    }

    // A DSP that only answers when the executor waits for it.
    int ExecuteWithSlowDsp() {
        during_wait = [this] { (void)!write(far_end_, kReply.data(), kReply.size()); };
        const int result = Execute("");
        during_wait = {};
        return result;
    }

    // Uses up the time that the executor has for a silent DSP. Sends the commands without a pause,
    // and anew where this program itself was held up, which gives the DSP the time to come back.
    void SendToSilentDsp(int commands) {
        bool is_held_up = true;
        while (is_held_up) {
            EXPECT_EQ(0, Execute(kReply));
            is_held_up = false;
            size_t wait_count = 0;
            milliseconds waited{0};
            exhaust_began_ = steady_clock::now();
            auto idle_since = exhaust_began_;
            for (int i = 0; i < commands; ++i) {
                const auto before = steady_clock::now();
                EXPECT_EQ(-ETIMEDOUT, Execute(""));
                const milliseconds wait = waits.empty() ? milliseconds(0) : waits.front();
                is_held_up |= steady_clock::now() - wait - idle_since >= kPause;
                idle_since = before + wait;
                waited += wait;
                wait_count += waits.size();
            }
            is_held_up |= steady_clock::now() - waited - exhaust_began_ >= kRow;
            if (!is_held_up) {
                EXPECT_EQ(3U, wait_count) << "200 + 200 + 100 ms";
                EXPECT_LE(waited, ZylCommandExecutor::kSilenceLimit);
            }
        }
    }

    static constexpr milliseconds kPause = ZylCommandExecutor::kSilencePause;
    static constexpr milliseconds kRow = ZylCommandExecutor::kSilentRow;
    steady_clock::time_point exhaust_began_;
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
    SendToSilentDsp(1000);
    EXPECT_EQ(0, Execute(kReply)) << "an answer that is there at once counts all the same";
    const auto answered = steady_clock::now();
    EXPECT_EQ(-ETIMEDOUT, Execute(""));
    EXPECT_GE(steady_clock::now() - answered, ZylCommandExecutor::kReplyTimeout);
}

TEST_F(ZylCommandExecutorTest, DspThatIsBackIsWaitedForAgain) {
    SendToSilentDsp(10);
    std::this_thread::sleep_for(kPause);
    EXPECT_EQ(0, ExecuteWithSlowDsp()) << "it was left alone for a while";

    SendToSilentDsp(10);
    executor_->Close();
    EXPECT_EQ(-EBADF, Execute("")) << "a device that refuses is not silent";
    ASSERT_EQ(0, executor_->Open());
    EXPECT_EQ(0, ExecuteWithSlowDsp());
}

TEST_F(ZylCommandExecutorTest, SilentDspIsWaitedForOnceInEachRowOfCommands) {
    bool is_held_up = true;
    while (is_held_up) {
        is_held_up = false;
        SendToSilentDsp(10);
        const auto exhausted = steady_clock::now();
        // A long download, or a framework that tries again and again.
        auto before = exhausted;
        while (true) {
            const auto last = std::exchange(before, steady_clock::now());
            const int result = ExecuteWithSlowDsp();
            is_held_up |= steady_clock::now() - last >= kPause;
            if (result == 0) break;
            ASSERT_LT(before - exhausted, kRow) << "given up for ever";
            (void)poll(nullptr, 0, 5);
        }
        if (!is_held_up) {
            EXPECT_GE(steady_clock::now() - exhaust_began_,
                      ZylCommandExecutor::kSilenceLimit + kRow);
        }
    }
}

TEST_F(ZylCommandExecutorTest, LateRepliesDoNotProlongTheWait) {
    static constexpr milliseconds kBetween{2};
    during_wait = [this] {
        (void)poll(nullptr, 0, kBetween.count());
        if (waits.size() > 200) return;
        (void)!write(far_end_, kEarlierSequence.data(), kEarlierSequence.size());
    };
    EXPECT_EQ(-ETIMEDOUT, Execute(""));
    for (size_t i = 0; i < waits.size(); ++i) {
        ASSERT_LE(waits[i], ZylCommandExecutor::kReplyTimeout - i * kBetween + milliseconds(1));
    }
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
