#include "host/virtual_dsp/dsp/detector.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>
#include <random>

#include "tests/virtual_dsp/dsp_test.h"

namespace virtual_dsp {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Audio = std::vector<int16_t>;

Audio Noise(size_t frames, double rms, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> level(0, rms);
    Audio audio(frames);
    for (int16_t& sample : audio) sample = static_cast<int16_t>(std::lround(level(random)));
    return audio;
}

// A voiced sound: harmonics of a low pitch under an envelope that rises to the very end, which
// makes every pitch period look much like the whole.
Audio Voice(size_t frames) {
    constexpr double kPitchHz = 75;
    Audio audio(frames);
    for (size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / kSampleRateHz;
        double value = 0;
        for (int harmonic = 1; harmonic <= 30; ++harmonic) {
            value += std::cos(2 * std::numbers::pi * kPitchHz * harmonic * t) / harmonic;
        }
        audio[i] = static_cast<int16_t>(1500 * value * (0.2 + t));
    }
    return audio;
}

void MixIn(const Audio& what, double gain, size_t at, Audio* into) {
    for (size_t i = 0; i < what.size(); ++i) {
        (*into)[at + i] = static_cast<int16_t>(std::lround((*into)[at + i] + gain * what[i]));
    }
}

double Pearson(const Audio& a, std::span<const int16_t> b) {
    const auto n = static_cast<double>(a.size());
    double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const double x = a[i], y = b[i];
        sa += x, sb += y, saa += x * x, sbb += y * y, sab += x * y;
    }
    return (sab - sa * sb / n) / std::sqrt((saa - sa * sa / n) * (sbb - sb * sb / n));
}

std::optional<Detection> Listen(const Audio& pcm_template, float threshold, const Audio& audio,
                                size_t block, uint64_t first_frame = 0) {
    Detector detector(pcm_template, threshold, first_frame);
    for (size_t at = 0; at < audio.size(); at += block) {
        const auto heard = std::span(audio).subspan(at, std::min(block, audio.size() - at));
        if (const auto detection = detector.Hear(heard)) return detection;
    }
    return std::nullopt;
}

TEST(DetectorTest, FindsTheExactFrameInNoiseWhateverTheLevelAndTheBlocks) {
    constexpr size_t kAt = 12'345;
    constexpr uint64_t kFirstFrame = 1'000'000'007;
    const Audio voice = Voice(7'777);
    Audio audio = Noise(40'000, 150, 1);
    MixIn(voice, 0.3, kAt, &audio);
    for (int16_t& sample : audio) sample = static_cast<int16_t>(sample + 900);  // A DC offset.
    const double truth = Pearson(voice, std::span(audio).subspan(kAt, voice.size()));

    for (const size_t block : {1U, 7U, 160U, 333U, 4'096U, 40'000U}) {
        const auto detection = Listen(voice, 0.5F, audio, block, kFirstFrame);
        ASSERT_TRUE(detection) << "in blocks of " << block;
        EXPECT_EQ(kFirstFrame + kAt + voice.size() - 1, detection->last_frame)
                << "in blocks of " << block;
        EXPECT_NEAR(truth, detection->score, 1e-4) << "in blocks of " << block;
    }
}

TEST(DetectorTest, ThresholdIsWhatTheCorrelationMustReach) {
    const Audio voice = Voice(8'000);
    Audio audio = Noise(30'000, 800, 2);
    MixIn(voice, 1, 10'001, &audio);
    const auto score =
            static_cast<float>(Pearson(voice, std::span(audio).subspan(10'001, voice.size())));
    ASSERT_GT(score, 0.4F);
    ASSERT_LT(score, 0.95F);

    EXPECT_TRUE(Listen(voice, score - 0.001F, audio, 160));
    EXPECT_FALSE(Listen(voice, score + 0.001F, audio, 160));
}

TEST(DetectorTest, OtherSoundsAreNotDetected) {
    const Audio voice = Voice(8'000);
    Audio upside_down = voice;
    for (int16_t& sample : upside_down) sample = static_cast<int16_t>(-sample);
    Audio loud_then_faint = Noise(40'000, 8'000, 3);
    for (size_t i = 20'000; i < 40'000; ++i) loud_then_faint[i] = i % 4'000 == 0 ? 1 : 0;
    Audio step(40'000, 20'000);
    std::fill_n(step.begin(), 20'000, int16_t{-20'000});

    EXPECT_FALSE(Listen(voice, 0.4F, Noise(80'000, 3'000, 4), 160)) << "noise";
    EXPECT_FALSE(Listen(voice, 0.4F, loud_then_faint, 160)) << "the edge of silence";
    EXPECT_FALSE(Listen(voice, 0.4F, step, 160)) << "a step of the offset";
    EXPECT_FALSE(Listen(voice, 0.99F, upside_down, 160)) << "the inverted sound";
    EXPECT_FALSE(Listen(voice, 0.0F, Audio(80'000, 0), 160)) << "silence";
}

using DspDetectionTest = DspTest;

TEST_F(DspDetectionTest, EachEngineReportsItsOwnTemplateOnceInTheOrderHeard) {
    Arm(Engine::kHotword, 30'000);
    Arm(Engine::kAmbientMusic, 20'000);
    Arm(Engine::kAmbientMusicBreak, 10'000);

    HearUntil(50'000, 50'000);

    EXPECT_THAT(TakeRecords(),
                ElementsAre("286 score=1.00 frame=13999", "259 score=1.00 frame=23999",
                            "241 score=1.00 frame=33999"));
    const DetectionRaised raised = EntriesOf<DetectionRaised>().back();
    EXPECT_EQ(Engine::kHotword, raised.engine);
    EXPECT_EQ(DetectionRaised::Origin::kHeard, raised.origin);
    EXPECT_EQ(33'999U, raised.frame);
    EXPECT_NEAR(1.0, raised.score, 0.001);
    EXPECT_FLOAT_EQ(0.7F, static_cast<float>(raised.threshold));
    EXPECT_EQ(30'000 - kPrerollFrames, raised.captured_from);
    EXPECT_TRUE(dsp_.engine(Engine::kHotword).detected);
    EXPECT_FALSE(dsp_.engine(Engine::kHotword).detecting);
}

TEST_F(DspDetectionTest, AnEngineDetectsOncePerStartAndNothingFromBeforeIt) {
    Arm(Engine::kHotword, 1'000);
    const auto play_template = [&] {
        dsp_.Hear(PatternFrames(1'000, kTemplateFrames), now_ns_);
        dsp_.Hear(PatternFrames(900'000, 1'000), now_ns_);
    };

    play_template();
    EXPECT_THAT(TakeRecords(), ElementsAre("241 score=1.00 frame=3999"));
    play_template();
    EXPECT_THAT(TakeRecords(), IsEmpty()) << "it was not started again";
    EXPECT_EQ(0, Send(227));
    dsp_.Hear(PatternFrames(900'000, 10'000), now_ns_);
    EXPECT_THAT(TakeRecords(), IsEmpty()) << "the template was heard before the start only";
    play_template();
    EXPECT_THAT(TakeRecords(), ElementsAre("241 score=1.00 frame=23999"));
}

TEST_F(DspDetectionTest, StopUnloadAndStartMakeAnUnreadDetectionAndItsAudioVoid) {
    const std::pair<uint16_t, VoidedBy> commands[] = {
            {228, VoidedBy::kStop}, {262, VoidedBy::kUnload}, {227, VoidedBy::kStart}};
    for (const auto& [id, cause] : commands) {
        Arm(Engine::kHotword, heard_ + 100);
        HearUntil(heard_ + 10'000);
        ASSERT_TRUE(dsp_.HasNotification());
        ASSERT_GT(dsp_.PcmBytesReady(PcmPort::kHotword), 0U);

        EXPECT_EQ(0, Send(id));

        EXPECT_FALSE(dsp_.HasNotification()) << "after command " << id;
        EXPECT_EQ(0U, dsp_.PcmBytesReady(PcmPort::kHotword)) << "after command " << id;
        EXPECT_EQ(cause, EntriesOf<RecordDropped>().back().cause);
        EXPECT_EQ(cause, EntriesOf<CaptureEnded>().back().cause);
    }
}

TEST_F(DspDetectionTest, ForcedAndInternalRecognitionsReportThePresentFrame) {
    EXPECT_EQ(-EINVAL, Send(267, std::vector<uint8_t>(8))) << "nothing is started";
    EXPECT_EQ(-EINVAL, Send(268)) << "nothing is loaded";
    EXPECT_EQ(0, Send(227)) << "a hotword start without a model serves internal recognition";
    EXPECT_EQ(-EINVAL, Send(256)) << "but not that of another engine";
    EXPECT_EQ(-EINVAL, Send(268)) << "nor a forced one";
    HearUntil(10'000);
    EXPECT_THAT(TakeRecords(), IsEmpty());

    EXPECT_EQ(0, Send(267, std::vector<uint8_t>(8)));
    EXPECT_EQ(0, Send(267, std::vector<uint8_t>(8))) << "which begins a new one";
    EXPECT_THAT(TakeRecords(), ElementsAre("241 internal frame=9999"));
    EXPECT_EQ(kPrerollFrames * 4, dsp_.PcmBytesReady(PcmPort::kHotword)) << "pre-roll only";

    Arm(Engine::kAmbientMusic, 100'000);
    EXPECT_EQ(0, Send(269));
    EXPECT_EQ(0, Send(269)) << "one that is already out is not refused";
    EXPECT_THAT(TakeRecords(), ElementsAre("259 forced frame=9999"));
    EXPECT_EQ(10'000U, dsp_.PcmBytesReady(PcmPort::kAmbient)) << "no more than was heard";
}

// The timestamp goes through the DSP's clock and back, as a reader of both nodes does it.
TEST_F(DspDetectionTest, HotwordTimestampIsTheBootTimeAtWhichTheTemplateEnded) {
    EXPECT_EQ(-EINVAL, Send(354, std::vector<uint8_t>(8))) << "no hotword yet";
    const int64_t start_ns = now_ns_;
    Arm(Engine::kHotword, 50'000);
    HearUntil(53'000);
    ns_per_frame_ /= 8;  // In the middle of the hotword the playback speeds up, in large blocks.
    HearUntil(70'000, 3'333);
    const int64_t truth_ns = start_ns + int64_t{53'000} * 62'500 + 1'000 * 62'500 / 8;

    ASSERT_EQ(0, Send(354, std::vector<uint8_t>(8)));
    uint64_t hotword_ticks = 0;
    std::memcpy(&hotword_ticks, reply_.data() + 8, sizeof(hotword_ticks));
    unsigned long long ticks = 0, boottime_ns = 0;
    ASSERT_EQ(2, std::sscanf(dsp_.ReadClock().c_str(), "%llu %llu\n", &ticks, &boottime_ns));

    EXPECT_EQ(static_cast<unsigned long long>(now_ns_), boottime_ns);
    EXPECT_NEAR(3600.0 + 1e-9 * static_cast<double>(now_ns_), static_cast<double>(ticks) / 19.2e6,
                1e-6);
    const double since_ns = static_cast<double>(ticks - hotword_ticks) / 19.2e6 * 1e9;
    EXPECT_NEAR(static_cast<double>(now_ns_ - truth_ns), since_ns, 1e4);
}

}  // namespace
}  // namespace virtual_dsp
