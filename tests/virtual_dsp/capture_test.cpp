#include <gmock/gmock.h>

#include "host/common/mulaw_encoder.h"
#include "tests/virtual_dsp/dsp_test.h"

namespace virtual_dsp {
namespace {

// What a reader makes of a mu-law byte, by the standard's expansion.
int16_t Expand(uint8_t code) {
    const int bits = ~code & 0xFF;
    const int magnitude = ((((bits & 0x0F) << 3) + 0x84) << ((bits >> 4) & 7)) - 0x84;
    return static_cast<int16_t>((bits & 0x80) != 0 ? -magnitude : magnitude);
}

TEST(MulawTest, EveryCodeSurvivesAndEverySampleKeepsItsNearestStep) {
    for (int code = 0; code < 256; ++code) {
        if (code == 0x7F) continue;  // Negative zero; the encoder has no use for it.
        EXPECT_EQ(code, EncodeMulaw(Expand(static_cast<uint8_t>(code))));
    }
    EXPECT_EQ(0x00, EncodeMulaw(-32'768));
    EXPECT_EQ(0x80, EncodeMulaw(32'767));
    for (int sample = -32'000; sample <= 32'000; sample += 13) {
        const int back = Expand(EncodeMulaw(static_cast<int16_t>(sample)));
        EXPECT_LE(std::abs(back - sample), 4 + std::abs(sample) / 30) << sample;
    }
}

class CaptureTest : public DspTest {
  protected:
    // Reads all there is and expects every frame of [first, end) of the pattern, in order.
    void ExpectHotwordFrames(uint64_t first, uint64_t end, bool swapped = false) {
        const std::vector<uint8_t> bytes = ReadAll(PcmPort::kHotword);
        ASSERT_EQ((end - first) * 4, bytes.size());
        std::vector<int16_t> pcm(bytes.size() / 2);
        std::memcpy(pcm.data(), bytes.data(), bytes.size());
        for (int channel : {0, 1}) {
            std::vector<int16_t> heard;
            for (size_t i = static_cast<size_t>(channel); i < pcm.size(); i += 2) {
                heard.push_back(pcm[i]);
            }
            EXPECT_EQ(first, FindPattern(heard, swapped ? 1 - channel : channel, 0, heard_))
                    << "channel " << channel;
        }
    }
    void ExpectAmbientFrames(uint64_t first, uint64_t end) {
        std::vector<int16_t> heard;
        for (const uint8_t code : ReadAll(PcmPort::kAmbient)) heard.push_back(Expand(code));
        ASSERT_EQ(end - first, heard.size());
        const auto coded = [](int16_t sample) { return Expand(EncodeMulaw(sample)); };
        EXPECT_EQ(first, FindPattern(heard, 0, 0, heard_, coded));
    }
};

TEST_F(CaptureTest, BothPortsDeliverPrerollAndThenEveryLiveFrame) {
    Arm(Engine::kHotword, 20'000);
    Arm(Engine::kAmbientMusicBreak, 30'000);
    HearUntil(40'000, 777);
    EXPECT_TRUE(dsp_.engine(Engine::kAmbientMusicBreak).capturing);

    ExpectHotwordFrames(20'000 - kPrerollFrames, 40'000);
    ExpectAmbientFrames(30'000 - kPrerollFrames, 40'000);
    HearUntil(160'000, 100'000);  // Once around the history's ring.
    ExpectHotwordFrames(40'000, 160'000);
    ExpectAmbientFrames(40'000, 160'000);
}

TEST_F(CaptureTest, ReadsAreWholeFramesAndNothingIsThereAfterTheLast) {
    Arm(Engine::kHotword, 100);
    HearUntil(10'000);

    EXPECT_EQ(0U, ReadAll(PcmPort::kHotword, 3).size());
    EXPECT_EQ(4'092U, ReadAll(PcmPort::kHotword, 4'095).size());
    ExpectHotwordFrames(1'023, 10'000);
    EXPECT_EQ(0U, dsp_.PcmBytesReady(PcmPort::kHotword));
    EXPECT_EQ(0U, ReadAll(PcmPort::kAmbient).size()) << "nothing is captured there";
}

TEST_F(CaptureTest, ASlowReaderLosesTheOldestFramesAndTheJournalSaysHowMany) {
    Arm(Engine::kHotword, 10'000);
    HearUntil(20'000);
    ExpectHotwordFrames(2'000, 20'000);

    HearUntil(20'000 + 128'000 + 500);

    ExpectHotwordFrames(20'500, 148'500);
    const auto overruns = EntriesOf<CaptureOverrun>();
    ASSERT_EQ(1U, overruns.size());
    EXPECT_EQ(PcmPort::kHotword, overruns[0].port);
    EXPECT_EQ(500U, overruns[0].lost);
    EXPECT_EQ(20'500U, overruns[0].frame);
    HearUntil(149'000);
    ExpectHotwordFrames(148'500, 149'000);
}

TEST_F(CaptureTest, TheLatestOfTheAmbientEnginesOwnsTheSharedPort) {
    Arm(Engine::kAmbientMusic, 10'000);
    Arm(Engine::kAmbientMusicBreak, 20'000);
    HearUntil(30'000);

    EXPECT_EQ(0, Send(257)) << "ends no capture: the music engine has lost it";
    ExpectAmbientFrames(20'000 - kPrerollFrames, 30'000);
    EXPECT_EQ(0, Send(284));
    HearUntil(31'000);
    EXPECT_EQ(0U, dsp_.PcmBytesReady(PcmPort::kAmbient));
}

TEST_F(CaptureTest, MicSwapExchangesWhatIsKeptAndWhatDetectionListensTo) {
    EXPECT_EQ(0, Send(342));
    Arm(Engine::kHotword, 10'000);  // A template of the first channel.
    HearUntil(15'000);
    EXPECT_FALSE(dsp_.HasNotification()) << "detection listens to the other microphone now";

    const SoundModel other{Engine::kHotword, 0.7F, PatternChannel(30'000, kTemplateFrames, 1)};
    ASSERT_EQ(0, Download(Engine::kHotword, BuildSoundModel(other)));
    HearUntil(40'000);
    EXPECT_TRUE(dsp_.HasNotification()) << "a load lets a started engine go on with the new model";
    ExpectHotwordFrames(30'000 - kPrerollFrames, 40'000, /*swapped=*/true);

    EXPECT_EQ(0, Send(343));
    HearUntil(41'000);
    ExpectHotwordFrames(40'000, 41'000);
}

}  // namespace
}  // namespace virtual_dsp
