#include <array>
#include <climits>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"
#include "host/common/mulaw_encoder.h"
#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

class AudioTest : public AdapterTest {
  protected:
    static constexpr char kUntouched = 0x55;

    int Read(int engine, unsigned size, int channels) {
        buffer_.fill(kUntouched);
        return adapter_->ReadDspBuffer(engine, buffer_.data(), size, channels);
    }

    std::vector<int16_t> Samples(size_t count) const {
        std::vector<int16_t> samples(count);
        memcpy(samples.data(), buffer_.data(), count * sizeof(int16_t));
        return samples;
    }

    // Bytes from the start up to the last one that was written.
    size_t WrittenBytes() const {
        size_t bytes = buffer_.size();
        while (bytes > 0 && buffer_[bytes - 1] == kUntouched) --bytes;
        return bytes;
    }

    // The buffer begins with what the first microphone heard, as the engine's device carries it.
    void ExpectFirstChannel(int engine, uint64_t first, size_t count) const {
        std::vector<int16_t> heard = ::virtual_dsp::PatternChannel(first, count, 0);
        for (int16_t& sample : heard) {
            const uint8_t code = ::virtual_dsp::EncodeMulaw(sample);
            if (engine != kHotword) ExpandMulaw({&code, 1}, reinterpret_cast<char*>(&sample));
        }
        EXPECT_TRUE(heard == Samples(count)) << "from frame " << first << " on";
    }

    // Audio of the engines is ready, from before their detections on.
    void Capture(const std::vector<int>& engines) {
        for (const int engine : engines) ASSERT_NO_FATAL_FAILURE(LoadAndStart(engine));
        ASSERT_TRUE(board_->microphone().Play(PatternFrames(0, 20000)).get());
        for (const int engine : engines) ASSERT_EQ(engine, TakeDetection());
        board_->dsp().journal().Clear();
    }

    std::array<char, 8192> buffer_{};
};

TEST_F(AudioTest, RequestThatIsTooLargeIsRefusedWithItsSize) {
    ASSERT_NO_FATAL_FAILURE(Capture({kHotword, kAmbient}));
    const std::tuple<int, unsigned, int, const char*> refused[] = {
            {kHotword, 2049, 1, "invalid requested size 4098 for hotword."},
            {kHotword, 4097, 2, "invalid requested size 4097 for hotword."},
            {kHotword, 4097, 0, "invalid requested size 4097 for hotword."},
            {kHotword, 0x80000000, 1, "invalid requested size 4294967296 for hotword."},
            {kHotword, UINT_MAX, 1, "invalid requested size 8589934590 for hotword."},
            {kHotword, UINT_MAX, 2, "invalid requested size 4294967295 for hotword."},
            {kAmbient, 2050, 1, "invalid requested size 1025 for ambient music."},
            {kAmbientBreak, UINT_MAX, 1, "invalid requested size 2147483647 for ambient music."},
            {0, 1024, 1, "wrong model type: 0"},
            {4, 1024, 1, "wrong model type: 4"},
    };
    for (const auto& [engine, size, channels, text] : refused) {
        EXPECT_EQ(-EINVAL, Read(engine, size, channels)) << text;
        EXPECT_THAT(log_.Take(), ElementsAre(Line('E', "ReadDspBuffer: " + std::string(text))));
        EXPECT_EQ(0U, WrittenBytes()) << text;
    }
    const std::tuple<int, unsigned, int, int> accepted[] = {
            {kHotword, 2048, 1, 2048}, {kHotword, 4096, 2, 4096}, {kHotword, 4096, 0, 4096},
            {kHotword, 0, 2, 0},       {kAmbient, 2049, 1, 2048}, {kAmbientBreak, 2048, 2, 2048},
            {kAmbient, 1, 1, 0},
    };
    for (const auto& [engine, size, channels, result] : accepted) {
        EXPECT_EQ(result, Read(engine, size, channels)) << size;
        EXPECT_EQ(static_cast<size_t>(result), WrittenBytes());
    }
    EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(AudioTest, BothChannelsAreWhatTheMicrophonesHeardFromTheHistoryIntoThePresent) {
    BoardOptions options;
    options.microphone.speed = 8.0;
    ASSERT_NO_FATAL_FAILURE(NewBoard(options));
    ASSERT_NO_FATAL_FAILURE(LoadAndStart(kHotword));
    constexpr size_t kFrames = 27 * 1024;
    const auto played = board_->microphone().Play(PatternFrames(0, kCaptureFirst + kFrames));
    ASSERT_EQ(kHotword, TakeDetection());

    std::vector<int16_t> captured;
    while (captured.size() < 2 * kFrames) {
        ASSERT_EQ(4096, Read(kHotword, 4096, 2)) << "after " << captured.size() << " samples";
        const auto samples = Samples(2048);
        captured.insert(captured.end(), samples.begin(), samples.end());
    }

    EXPECT_EQ(PatternSample(kCaptureFirst, 0), captured[0]) << "where the pre-roll begins";
    EXPECT_TRUE(captured == board_->microphone().Heard(kCaptureFirst, kFrames))
            << "some frame was lost, duplicated, mixed up or changed";
    EXPECT_TRUE(played.get());
}

TEST_F(AudioTest, OneChannelIsTheFirstMicrophone) {
    for (const int engine : {kHotword, kAmbient, kAmbientBreak}) {
        ASSERT_NO_FATAL_FAILURE(NewBoard(FastOptions()));
        ASSERT_NO_FATAL_FAILURE(Capture({engine}));

        EXPECT_EQ(1000, Read(engine, 1000, 1));
        ExpectFirstChannel(engine, kCaptureFirst, 500);
        EXPECT_EQ(2048U, WrittenBytes()) << "1024 samples are converted, whatever was asked for";
        EXPECT_EQ(2048, Read(engine, 2048, 1));
        ExpectFirstChannel(engine, kCaptureFirst + 500, 1024);
        EXPECT_EQ(engine == kHotword ? 1U : 0U, TakeIds().size())
                << "only a hotword has a timestamp";
    }
}

TEST_F(AudioTest, DeviceThatDeliversInPiecesIsReadUntilTheBufferIsFull) {
    ASSERT_NO_FATAL_FAILURE(Capture({kHotword, kAmbient}));
    SetFaults({"on hotword_pcm read short=1000", "on ambient_pcm read short=333"});

    EXPECT_EQ(4096, Read(kHotword, 4096, 2));
    EXPECT_EQ(PatternFrames(kCaptureFirst, 1024), Samples(2048));
    EXPECT_EQ(2048, Read(kAmbient, 2048, 1));
    ExpectFirstChannel(kAmbient, kCaptureFirst, 1024);
    EXPECT_EQ(5U, board_->faults().Fired(0));
    EXPECT_EQ(4U, board_->faults().Fired(1));
}

// Every way out: the status, the log line, whether the hotword is dated, and a closed device.
TEST_F(AudioTest, ReadThatFailsLeavesTheBufferAndClosesTheDevice) {
    ASSERT_NO_FATAL_FAILURE(Capture({kHotword, kAmbient}));
    const std::tuple<std::vector<std::string>, int, bool /*in the wait*/> cases[] = {
            {{"poll hang"}, -ETIMEDOUT, true},
            {{"read times=1 short=400", "poll after=1 hang"}, -ETIMEDOUT, true},
            {{"open errno=ENOENT"}, -EBADF, true},
            {{"read errno=EIO"}, -EIO, false},
            {{"read times=1 short=400", "read errno=ENODEV"}, -ENODEV, false},
            {{"read short=0"}, -EIO, false},
    };
    for (const auto& [faults, result, in_wait] : cases) {
        for (const int engine : {kHotword, kAmbient}) {
            SCOPED_TRACE(faults.back() + " of engine " + std::to_string(engine));
            NewAdapter();  // Has dated nothing yet.
            (void)log_.Take();
            const size_t descriptors = OpenDescriptors();
            board_->faults().Clear();
            for (const std::string& fault : faults) {
                AddFault((engine == kHotword ? "on hotword_pcm " : "on ambient_pcm ") + fault);
            }

            EXPECT_EQ(result, Read(engine, 2048, 1));

            EXPECT_EQ(0U, WrittenBytes());
            EXPECT_EQ(descriptors, OpenDescriptors());
            EXPECT_EQ(engine == kHotword && !in_wait ? 1U : 0U, TakeIds().size());
            EXPECT_EQ(in_wait ? Lines{Line('W', "ReadDspBuffer: Poll buffer timedout.")} : Lines{},
                      log_.Take());
        }
    }
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
