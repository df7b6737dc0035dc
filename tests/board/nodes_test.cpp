#include <future>
#include <set>
#include <thread>

#include "tests/board/board_fixture.h"

namespace virtual_dsp {
namespace {

TEST_F(BoardTest, ReplyAndRefusalGoToTheOpenFileThatSentTheCommand) {
    const Fd asking(kCommandDevice, O_RDWR | O_NONBLOCK);
    const Fd refused(kCommandDevice, O_RDWR | O_NONBLOCK);
    std::vector<uint8_t> reply(256);
    EXPECT_EQ(-ENODATA, asking.Read(reply.data(), reply.size())) << "nothing was asked yet";

    EXPECT_EQ(76, asking.Write(ArchitectureQuery()));
    EXPECT_EQ(8, refused.Write(Command(/*unknown*/ 999)));

    EXPECT_EQ(POLLIN, refused.Poll(POLLIN, kDeadline));
    EXPECT_EQ(-EINVAL, refused.Read(reply.data(), reply.size()));
    EXPECT_EQ(POLLIN, asking.Poll(POLLIN, kDeadline));
    EXPECT_EQ(76, asking.Read(reply.data(), reply.size()));
    EXPECT_STREQ("arm", reinterpret_cast<const char*>(&reply[12]));
    EXPECT_EQ(-ENODATA, asking.Read(reply.data(), reply.size())) << "a reply is read once";
    EXPECT_EQ(0, asking.Poll(POLLIN));
}

TEST_F(BoardTest, WritesThatAreNoCommandAreRefusedAtOnce) {
    const Fd command(kCommandDevice, O_RDWR);

    EXPECT_EQ(-EINVAL, command.Write(std::vector<uint8_t>(7)));
    EXPECT_EQ(-EINVAL, command.Write(std::vector<uint8_t>(257)));

    EXPECT_TRUE(board_->dsp().journal().Snapshot().empty()) << "the DSP was bothered with it";
}

TEST_F(BoardTest, LateReplyToAClosedFileDoesNotReachTheNext) {
    AddFault("on command reply times=1 hang");
    std::vector<uint8_t> reply(256);
    {
        const Fd slow(kCommandDevice, O_RDWR | O_NONBLOCK);
        EXPECT_EQ(8, slow.Write(Command(CMD_AUDIO_INPUT_MIC_SWAP_ENABLE)));
        EXPECT_EQ(0, slow.Poll(POLLIN));
        EXPECT_EQ(-EAGAIN, slow.Read(reply.data(), reply.size()));
    }
    const Fd next(kCommandDevice, O_RDWR | O_NONBLOCK);
    EXPECT_EQ(76, next.Write(ArchitectureQuery()));

    board_->faults().Clear();

    EXPECT_EQ(76, next.Read(reply.data(), reply.size()));
    EXPECT_EQ(-ENODATA, next.Read(reply.data(), reply.size()));
    EXPECT_TRUE(board_->dsp().settings().mic_swap) << "only the reply is late, not the command";
}

TEST_F(BoardTest, SelectWakesForANotificationAndOneReadTakesOneRecord) {
    const Fd notification(kNotificationDevice, O_RDWR | O_NONBLOCK);
    NotificationRecord record;
    EXPECT_EQ(-EAGAIN, notification.Read(&record, sizeof(record)));

    std::thread dsp([this] { Detect(); });
    EXPECT_TRUE(notification.Select(kDeadline));
    dsp.join();

    EXPECT_EQ(40, notification.Read(&record, sizeof(record)));
    EXPECT_EQ(kHotwordDetected, record.id);
    EXPECT_EQ(-EAGAIN, notification.Read(&record, sizeof(record)));
    Detect();
    EXPECT_EQ(6, notification.Read(&record, 6));
    EXPECT_EQ(-EAGAIN, notification.Read(&record, sizeof(record))) << "the rest was dropped";
}

TEST_F(BoardTest, PcmReadWaitsForAudioAndDeliversWhatTheMicrophoneHeard) {
    const Fd nonblocking(kHotwordPcmDevice, O_RDONLY | O_NONBLOCK);
    const Fd blocking(kHotwordPcmDevice, O_RDONLY);
    std::vector<int16_t> audio(320);
    EXPECT_EQ(-EAGAIN, nonblocking.Read(audio.data(), 640));
    EXPECT_EQ(-EINVAL, nonblocking.Read(audio.data(), 3)) << "less than a frame";
    EXPECT_EQ(0, nonblocking.Poll(POLLIN));
    Detect();

    auto reader = std::async(std::launch::async, [&] { return blocking.Read(audio.data(), 640); });
    std::vector<int16_t> played(3200);
    for (size_t i = 0; i < played.size(); ++i) played[i] = static_cast<int16_t>(i * 7 + 1);
    board_->microphone().Play(played).wait();

    ASSERT_EQ(640, reader.get());
    EXPECT_EQ(audio, board_->microphone().Heard(0, 160));
    EXPECT_EQ(POLLIN, nonblocking.Poll(POLLIN, kDeadline));

    // A stop between a reader's poll and its read, or during the read, must not leave it waiting.
    std::vector<char> more(4096);
    auto last = std::async(std::launch::async, [&] {
        while (true) {
            const auto count = blocking.Read(more.data(), more.size());
            if (count < 0) return count;
        }
    });
    std::vector<uint8_t> reply;
    EXPECT_EQ(0, board_->dsp().Execute(Command(CMD_AUDIO_INPUT_HOTWORD_STOP), &reply));
    EXPECT_EQ(-ENODATA, last.get());
    EXPECT_EQ(-ENODATA, nonblocking.Read(audio.data(), 640));
    EXPECT_EQ(-EAGAIN, Fd(kHotwordPcmDevice, O_RDONLY | O_NONBLOCK).Read(audio.data(), 640));
}

TEST_F(BoardTest, CrashEndsEveryWaitAndTheNodesWorkAgainAfterBoot) {
    const Fd notification(kNotificationDevice, O_RDWR | O_NONBLOCK);
    const Fd pcm(kHotwordPcmDevice, O_RDONLY);
    const Fd command(kCommandDevice, O_RDWR | O_NONBLOCK);
    char bytes[256];
    AddFault("on command reply times=1 hang");
    EXPECT_EQ(8, command.Write(Command(CMD_AUDIO_INPUT_MIC_SWAP_ENABLE)));
    auto selecting = std::async(std::launch::async, [&] { return notification.Select(kDeadline); });
    auto reading = std::async(std::launch::async, [&] { return pcm.Read(bytes, 128); });

    board_->dsp().Crash();

    EXPECT_TRUE(selecting.get());
    EXPECT_EQ(-ENODEV, reading.get());
    EXPECT_EQ(-ENODEV, notification.Read(bytes, 40));
    EXPECT_EQ(POLLERR | POLLHUP, notification.Poll(POLLIN));
    EXPECT_EQ(-ENODEV, command.Write(ArchitectureQuery()));
    EXPECT_EQ(-ENODEV, Fd(kModelDataDevice, O_WRONLY).Write("chunk", 5));
    EXPECT_EQ(-ENODEV, Fd(kClockNode, O_RDONLY).Read(bytes, sizeof(bytes)));
    board_->dsp().Boot();
    EXPECT_EQ(-EAGAIN, notification.Read(bytes, 40));
    EXPECT_EQ(76, command.Write(ArchitectureQuery()));
    EXPECT_EQ(76, command.Read(bytes, sizeof(bytes)));
}

TEST_F(BoardTest, ReplyThatWentDownWithTheDspFailsEvenAfterBoot) {
    const Fd command(kCommandDevice, O_RDWR | O_NONBLOCK);
    char bytes[256];
    EXPECT_EQ(76, command.Write(ArchitectureQuery()));

    board_->dsp().Crash();
    board_->dsp().Boot();

    EXPECT_EQ(-ENODEV, command.Read(bytes, sizeof(bytes)));
}

TEST_F(BoardTest, EachModelDataWriteIsOneChunk) {
    const Fd data(kModelDataDevice, O_WRONLY);
    const Fd command(kCommandDevice, O_RDWR);
    std::vector<uint8_t> model(kModelChunkBytes + 100);
    for (size_t i = 0; i < model.size(); ++i) model[i] = static_cast<uint8_t>(i * 31);
    const auto write_model = [&](size_t offset) {
        auto bytes = Command(CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL, sizeof(WriteModelPayload));
        const auto position = static_cast<uint32_t>(offset);
        std::memcpy(&bytes[8], &position, sizeof(position));
        EXPECT_EQ(12, command.Write(bytes));
        return command.Read(bytes.data(), bytes.size());
    };

    EXPECT_EQ(kModelChunkBytes, data.Write(model.data(), kModelChunkBytes));
    EXPECT_EQ(12, write_model(0));
    EXPECT_EQ(100, data.Write(model.data() + kModelChunkBytes, 100));
    EXPECT_EQ(12, write_model(kModelChunkBytes));

    EXPECT_EQ(model, board_->dsp().model_bytes(Engine::kHotword));
}

TEST_F(BoardTest, DevicesRefuseTheWrongDirection) {
    EXPECT_EQ(-1, Fd(kModelDataDevice, O_RDONLY).get());
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ(-1, Fd(kHotwordPcmDevice, O_RDWR).get());
    EXPECT_EQ(EACCES, errno);
    const Fd command(kCommandDevice, O_RDWR);
    EXPECT_EQ(-1, lseek(command.get(), 0, SEEK_SET)) << "a device has no position";
    EXPECT_EQ(ESPIPE, errno);
}

TEST_F(BoardTest, WakeLocksAreTakenAndReleasedByName) {
    const Fd lock("/sys/power/wake_lock", O_RDWR);
    const Fd unlock("/sys/power/wake_unlock", O_RDWR);

    EXPECT_EQ(-EINVAL, lock.Write("\n", 1));
    EXPECT_EQ(-EINVAL, lock.Write("one 500", 7)) << "a time-out is not supported";
    EXPECT_EQ(4, lock.Write("one\n", 4));
    EXPECT_EQ(3, lock.Write("two", 3));
    char list[64] = {};
    EXPECT_EQ(8, Fd("/sys/power/wake_lock", O_RDONLY).Read(list, sizeof(list)));
    EXPECT_STREQ("one two\n", list);
    EXPECT_EQ(3, unlock.Write("one", 3));
    EXPECT_EQ(-EINVAL, unlock.Write("one", 3)) << "no longer held";
    EXPECT_EQ(std::set<std::string>{"two"}, board_->wake_locks().Held());
}

TEST_F(BoardTest, TuningFileIsThereWithItsSizeOnceItHasContents) {
    EXPECT_EQ(-1, Fd(kTuningFile, O_RDONLY).get());
    EXPECT_EQ(ENOENT, errno);
    board_->SetTuningFile(std::vector<uint8_t>(5000, 'x'));
    const Fd old(kTuningFile, O_RDONLY);

    EXPECT_EQ(5000, lseek(old.get(), 0, SEEK_END));
    board_->SetTuningFile(std::vector<uint8_t>(3, 'y'));
    EXPECT_EQ(3, lseek(Fd(kTuningFile, O_RDONLY).get(), 0, SEEK_END));
    char bytes[8192];
    EXPECT_EQ(4000, pread(old.get(), bytes, sizeof(bytes), 1000)) << "an open file keeps its bytes";
    board_->RemoveTuningFile();
    EXPECT_NE(0, access(kTuningFile, F_OK));
}

TEST_F(BoardTest, ClockReadByteByByteIsOfOneMoment) {
    const Fd clock(kClockNode, O_RDONLY);
    std::string text;
    char byte;
    while (clock.Read(&byte, 1) == 1) text += byte;
    unsigned long long ticks = 0;
    unsigned long long boottime_ns = 0;
    ASSERT_EQ(2, sscanf(text.c_str(), "%llu %llu", &ticks, &boottime_ns)) << text;
    const long double dsp_ns = static_cast<long double>(ticks) * 1e9L / 19.2e6L;
    const auto ahead = static_cast<long double>(DspOptions{}.clock_ahead_ns);
    EXPECT_NEAR(ahead, dsp_ns - static_cast<long double>(boottime_ns), 100);
}

}  // namespace
}  // namespace virtual_dsp
