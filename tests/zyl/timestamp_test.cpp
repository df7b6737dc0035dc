#include <array>
#include <atomic>

#include "audio/hal/utils/zyl/zyl_ticks.h"
#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

constexpr int64_t kBlockNs = 10'000'000;  // The microphone's blocks.
constexpr int64_t kBeginningNs = 5'000'000'000;

// On a board whose time is this fixture's: it goes on with what the microphone hears.
class TimestampTest : public AdapterTest {
  protected:
    void SetUp() override {
        BoardOptions options = FastOptions();
        options.dsp.boottime_ns = [this] { return now_ns_.load(); };
        options.dsp.clock_ahead_ns = 86'400'000'000'000;
        NewBoard(options);
    }

    // Goes on with the pattern.
    void Play(size_t frames) {
        const auto progress = [this](size_t) { now_ns_ += kBlockNs; };
        const auto audio = PatternFrames(board_->microphone().Position(), frames);
        ASSERT_TRUE(board_->microphone().Play(audio, progress).get());
    }

    int Read() { return adapter_->ReadDspBuffer(kHotword, buffer_.data(), 64, 2); }

    // Has a second heard, a hotword at its end and the first read of its audio; returns the
    // timestamp known by then.
    int64_t DateNext() {
        Play(16000);
        EXPECT_EQ(0, adapter_->StartDetectionInDsp(kHotword));
        EXPECT_EQ(0, adapter_->InternalHotwordRecognition(0));
        EXPECT_EQ(kHotword, TakeDetection());
        EXPECT_EQ(64, Read());
        return adapter_->ReadDspTimestamp(kHotword);
    }

    static void ExpectNear(int64_t truth_ns, int64_t timestamp_ns) {
        EXPECT_NEAR(static_cast<double>(truth_ns), static_cast<double>(timestamp_ns), 1000);
    }

    std::atomic<int64_t> now_ns_{kBeginningNs};
    std::array<char, 4096> buffer_{};
};

TEST_F(TimestampTest, HotwordIsDatedWhenItsLastFrameWasHeard) {
    ASSERT_NO_FATAL_FAILURE(LoadAndStart(kHotword));
    Play(kTemplateEnd + 16000);
    ASSERT_EQ(kHotword, TakeDetection());
    EXPECT_EQ(-1, adapter_->ReadDspTimestamp(kHotword)) << "no audio of it was read yet";

    ASSERT_EQ(64, Read());

    // The first block was heard at the beginning of time, the template ends with a later one.
    const int64_t blocks = kTemplateEnd / 160;
    ExpectNear(kBeginningNs + (blocks - 1) * kBlockNs, adapter_->ReadDspTimestamp(kHotword));
    for (const int engine : {-1, 0, 2, 3, 4}) EXPECT_EQ(0, adapter_->ReadDspTimestamp(engine));
}

TEST_F(TimestampTest, DspIsAskedOncePerHotword) {
    ExpectNear(kBeginningNs + 99 * kBlockNs, DateNext());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(64, Read());
    EXPECT_THAT(TakeSent(), ElementsAre("00??0800e3000000", "00??10000b0100000000000000000000",
                                        "00??1000620100000000000000000000"));

    ASSERT_NO_FATAL_FAILURE(LoadAndStart(kAmbient));
    ASSERT_EQ(0, adapter_->TriggerForceRecognition(kAmbient));
    ASSERT_EQ(kAmbient, TakeDetection());
    EXPECT_EQ(64, Read());
    EXPECT_EQ((std::vector<uint32_t>{263, 264, 256, 269}), TakeIds()) << "music is no hotword";

    ExpectNear(kBeginningNs + 199 * kBlockNs, DateNext());
    EXPECT_EQ((std::vector<uint32_t>{227, 267, 354}), TakeIds());
}

TEST_F(TimestampTest, WithoutBothClocksTheOlderTimestampStays) {
    const int64_t known = DateNext();
    ASSERT_LT(0, known);
    const Lines open_failure = {Line('E',
                                     "ReadTimestampOffset: Open failure for /sys/devices/"
                                     "platform/17000000.zyl/"
                                     "zyl_clock_and_kernel_boottime")};
    const Lines read_failure = {Line('E',
                                     "ReadTimestampOffset: Failed to read zyl clock and "
                                     "kernel boot time from sysfs.")};
    const std::pair<std::optional<std::string>, Lines> nodes[] = {
            {std::nullopt, open_failure},
            {"", read_failure},
            {"clock", read_failure},
            {"100", read_failure},
            {"100 x", read_failure},
            {"-1 1", read_failure},
            {"100 -200", read_failure},
            {"1 99999999999999999999999", read_failure},
            {"99999999999999999999999 1", read_failure},
            // Cut off in the second number by a reader that takes no more than two need.
            {std::string(44, ' ') + "19200000000 999000000000", read_failure},
            {"12 625", {}},                  // No offset.
            {"12 100000000", {}},            // A negative one.
            {"18446744073709551615 1", {}},  // One beyond the hotword.
    };
    for (const auto& [contents, lines] : nodes) {
        SCOPED_TRACE(contents.value_or("no node"));
        const ReplacedNode node(kClockNode, contents);
        EXPECT_EQ(known, DateNext());
        EXPECT_EQ(lines, log_.Take());
    }
    SetFaults({"on command reply id=354 times=1 errno=EIO"});
    EXPECT_EQ(known, DateNext());
    EXPECT_THAT(log_.Take(), ElementsAre(Line('E', "ReadHotwordTimestampFromDsp: Error with: -5")));
    ExpectNear(kBeginningNs + (15 * 100 + 99) * kBlockNs, DateNext());
}

TEST_F(TimestampTest, OffsetIsDspTimeLessKernelTime) {
    const std::pair<const char*, int64_t> nodes[] = {
            {"100 200", utils::zyl::zyl_ticks_to_nanoseconds(100) - 200},
            {" 19200000\t999999999\n", 1},
            {"18446744073709551615 0", INT64_MAX},
    };
    for (const auto& [contents, expected] : nodes) {
        const ReplacedNode node(kClockNode, contents);
        int64_t offset = 0;
        EXPECT_TRUE(Peer().ReadTimestampOffset(offset)) << contents;
        EXPECT_EQ(expected, offset);
    }
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
