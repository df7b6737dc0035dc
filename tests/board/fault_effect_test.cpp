#include <sys/wait.h>

#include <future>
#include <thread>

#include "tests/board/board_fixture.h"

namespace virtual_dsp {
namespace {

using std::chrono::steady_clock;

TEST_F(BoardTest, ErrnoFaultReplacesTheCall) {
    const size_t gone = AddFault("on hotword_pcm open times=1 errno=ENOENT");
    AddFault("on command reply id=342 errno=EIO");
    EXPECT_EQ(-1, Fd(kHotwordPcmDevice, O_RDONLY).get());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_NE(-1, Fd(kHotwordPcmDevice, O_RDONLY).get()) << "once only";
    EXPECT_EQ(1U, board_->faults().Fired(gone));

    const Fd command(kCommandDevice, O_RDWR);
    uint8_t reply[256];
    EXPECT_EQ(8, command.Write(Command(CMD_AUDIO_INPUT_MIC_SWAP_ENABLE)));
    EXPECT_EQ(-EIO, command.Read(reply, sizeof(reply)));
    EXPECT_FALSE(board_->dsp().settings().mic_swap) << "refused, so not carried out";
    EXPECT_EQ(8, command.Write(Command(CMD_AUDIO_INPUT_MIC_SWAP_DISABLE)));
    EXPECT_EQ(8, command.Read(reply, sizeof(reply))) << "another command is not concerned";
}

TEST_F(BoardTest, ShortAndTornFaultsChangeWhatArrives) {
    AddFault("on model_data write short=100");
    AddFault("on command write times=1 short=4");
    AddFault("on command reply id=282 torn=2 at=4");
    AddFault("on notification read times=1 short=-1");
    const Fd command(kCommandDevice, O_RDWR);
    uint8_t bytes[256];

    EXPECT_EQ(100, Fd(kModelDataDevice, O_WRONLY).Write(std::vector<uint8_t>(500)));
    EXPECT_EQ(4, command.Write(ArchitectureQuery()));
    EXPECT_EQ(-ENODATA, command.Read(bytes, sizeof(bytes))) << "half a command was carried out";
    EXPECT_EQ(76, command.Write(ArchitectureQuery()));
    EXPECT_EQ(76, command.Read(bytes, sizeof(bytes)));
    auto expected = ArchitectureQuery();
    EXPECT_EQ(static_cast<uint8_t>(~expected[4]), bytes[4]);
    EXPECT_EQ(static_cast<uint8_t>(~expected[5]), bytes[5]);
    EXPECT_EQ(expected[6], bytes[6]);
    Detect();
    EXPECT_EQ(39, Fd(kNotificationDevice, O_RDWR | O_NONBLOCK).Read(bytes, 40));
}

TEST_F(BoardTest, ShortPcmReadLosesNoWholeFrames) {
    AddFault("on hotword_pcm read times=1 short=8");
    Detect();
    const std::vector<int16_t> played = {1, 2, 3, 4, 5, 6, 7, 8};
    board_->microphone().Play(played).wait();
    const Fd pcm(kHotwordPcmDevice, O_RDONLY);
    int16_t first[8] = {};
    int16_t rest[8] = {};

    EXPECT_EQ(8, pcm.Read(first, sizeof(first)));
    EXPECT_EQ(8, pcm.Read(rest, sizeof(rest)));

    EXPECT_EQ(4, first[3]);
    EXPECT_EQ(5, rest[0]);
}

TEST_F(BoardTest, DelayedReplyWakesItsPollerWhenItIsDue) {
    AddFault("on command reply delay=30");
    const Fd command(kCommandDevice, O_RDWR | O_NONBLOCK);
    uint8_t bytes[256];
    const auto begin = steady_clock::now();
    EXPECT_EQ(76, command.Write(ArchitectureQuery()));

    EXPECT_EQ(-EAGAIN, command.Read(bytes, sizeof(bytes)));
    EXPECT_EQ(POLLIN, command.Poll(POLLIN, kDeadline));

    EXPECT_GE(steady_clock::now() - begin, milliseconds(30));
    EXPECT_EQ(76, command.Read(bytes, sizeof(bytes)));
}

TEST_F(BoardTest, PollFaultsHideReadinessOrPretendIt) {
    const Fd notification(kNotificationDevice, O_RDWR | O_NONBLOCK);
    const Fd pcm(kHotwordPcmDevice, O_RDONLY | O_NONBLOCK);
    AddFault("on hotword_pcm poll times=1 ready");
    AddFault("on hotword_pcm poll times=1 errno=EIO");
    AddFault("on notification poll times=1 hang");
    EXPECT_EQ(POLLIN, pcm.Poll(POLLIN));
    EXPECT_EQ(POLLERR, pcm.Poll(POLLIN));
    Detect();
    EXPECT_EQ(0, notification.Poll(POLLIN, milliseconds(1)));

    auto waiting = std::async(std::launch::async, [&] { return notification.Select(kDeadline); });
    board_->faults().Clear();

    EXPECT_TRUE(waiting.get());
}

TEST_F(BoardTest, ChildThatHangsInAFaultedReadCanBeKilled) {
    const size_t hang = AddFault("on clock read hang");
    const pid_t child = fork();
    if (child == 0) {
        char bytes[64];
        (void)!read(open(kClockNode, O_RDONLY), bytes, sizeof(bytes));
        _exit(0);
    }
    ASSERT_TRUE(board_->faults().WaitUntilFired(hang, 1, kDeadline));

    kill(child, SIGKILL);

    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

TEST_F(BoardTest, HangsEndWithThePlanWithTheDspAndWithTheBoard) {
    char bytes[64];
    const size_t hang = AddFault("on clock read hang");
    auto reading = [&bytes](const char* path) {
        return std::async(std::launch::async,
                          [&bytes, path] { return Fd(path, O_RDONLY).Read(bytes, sizeof(bytes)); });
    };
    auto cleared = reading(kClockNode);
    ASSERT_TRUE(board_->faults().WaitUntilFired(hang, 1, kDeadline));
    board_->faults().Clear();
    EXPECT_GT(cleared.get(), 0);

    AddFault("on hotword_pcm read hang");
    auto crashed = reading(kHotwordPcmDevice);
    ASSERT_TRUE(board_->faults().WaitUntilFired(0, 1, kDeadline));
    board_->dsp().Crash();
    EXPECT_EQ(-ENODEV, crashed.get());

    auto dropped = reading(kHotwordPcmDevice);
    ASSERT_TRUE(board_->faults().WaitUntilFired(0, 2, kDeadline));
    board_.reset();
    EXPECT_LT(dropped.get(), 0);
}

}  // namespace
}  // namespace virtual_dsp
