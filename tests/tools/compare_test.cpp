#include "tools/audio/compare.h"

#include <android-base/stringprintf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/virtual_dsp/dsp/sample_pattern.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Kind = Mismatch::Kind;

constexpr size_t kHeardFrames = 80000;  // 5 s.
constexpr size_t kBlock = 512;

Sound Heard() {
    return {.channels = 2, .samples = virtual_dsp::PatternFrames(0, kHeardFrames)};
}

// What an untroubled reader captures: whole blocks from 1.42 s on.
Sound Captured(size_t blocks = 100) {
    return {.channels = 2, .samples = virtual_dsp::PatternFrames(22720, blocks * kBlock)};
}

auto At(Sound* sound, size_t frame) {
    return sound->samples.begin() + static_cast<ptrdiff_t>(frame * 2);
}

auto IsMismatch(Kind kind, size_t capture_frame, size_t microphone_frame, size_t frames) {
    return ::testing::AllOf(
            ::testing::Field("kind", &Mismatch::kind, kind),
            ::testing::Field("capture_frame", &Mismatch::capture_frame, capture_frame),
            ::testing::Field("microphone_frame", &Mismatch::microphone_frame, microphone_frame),
            ::testing::Field("frames", &Mismatch::frames, frames));
}

TEST(CompareTest, AFaithfulCaptureIsFoundWhicheverChannelsItHas) {
    const Comparison straight = CompareCapture(Heard(), Captured());
    EXPECT_TRUE(straight.IsExact()) << straight.ToString();
    EXPECT_EQ("capture starts at 1.420 s, 51200 frames equal, no frame missing or duplicated",
              straight.ToString());

    Sound swapped = Captured();
    for (size_t i = 0; i < swapped.frames(); ++i) {
        std::swap(swapped.samples[2 * i], swapped.samples[2 * i + 1]);
    }
    const Comparison exchanged = CompareCapture(Heard(), swapped);
    EXPECT_TRUE(exchanged.IsExact());
    EXPECT_THAT(exchanged.ToString(), HasSubstr("microphones swapped"));
    EXPECT_TRUE(CompareCapture(Heard(), swapped.Channel(1)).IsExact());
    EXPECT_EQ(1, CompareCapture(Heard(), swapped.Channel(0)).first_microphone);

    // Shorter than any window that an index could hold.
    const Sound few{.channels = 2, .samples = virtual_dsp::PatternFrames(777, 9)};
    EXPECT_TRUE(CompareCapture(Heard(), few).IsExact());
    EXPECT_EQ(777U, CompareCapture(Heard(), few).first_frame);
}

TEST(CompareTest, LostDuplicatedAndStaleBlocksAreReportedWithTheirPlaces) {
    Sound lost = Captured();
    lost.samples.erase(At(&lost, 10 * kBlock), At(&lost, 11 * kBlock));
    EXPECT_THAT(CompareCapture(Heard(), lost).mismatches,
                ElementsAre(IsMismatch(Kind::kMissing, 5120, 22720 + 5120, kBlock)));

    Sound duplicated = Captured();
    const std::vector<int16_t> block(At(&duplicated, 20 * kBlock), At(&duplicated, 21 * kBlock));
    duplicated.samples.insert(At(&duplicated, 21 * kBlock), block.begin(), block.end());
    const Comparison comparison = CompareCapture(Heard(), duplicated);
    EXPECT_THAT(comparison.mismatches,
                ElementsAre(IsMismatch(Kind::kDuplicated, 10752, 22720 + 10240, kBlock)));
    EXPECT_THAT(comparison.ToString(), HasSubstr("512 duplicated"));

    // A buffer handed out again in place of a newer one: one block twice, another never.
    Sound stale = Captured();
    std::copy(block.begin(), block.end(), At(&stale, 24 * kBlock));
    EXPECT_THAT(CompareCapture(Heard(), stale).mismatches,
                ElementsAre(IsMismatch(Kind::kDuplicated, 12288, 22720 + 10240, kBlock),
                            IsMismatch(Kind::kMissing, 12800, 22720 + 12288, kBlock)));
}

TEST(CompareTest, LossNearTheEndsIsFoundWhereNoWindowFits) {
    Sound early = Captured(4);
    early.samples.erase(At(&early, 20), At(&early, 120));
    EXPECT_THAT(CompareCapture(Heard(), early).mismatches,
                ElementsAre(IsMismatch(Kind::kMissing, 20, 22740, 100)));

    Sound late = Captured(4);
    late.samples.erase(At(&late, 1928), At(&late, 2028));
    EXPECT_THAT(CompareCapture(Heard(), late).mismatches,
                ElementsAre(IsMismatch(Kind::kMissing, 1928, 22720 + 1928, 100)));
}

TEST(CompareTest, AChangedSampleIsShownWithBothValues) {
    Sound changed = Captured();
    for (const size_t frame : {size_t{0}, size_t{7000}, changed.frames() - 1}) {
        changed.samples[frame * 2 + 1] ^= 1;
    }
    const Comparison comparison = CompareCapture(Heard(), changed);

    EXPECT_EQ(changed.frames() - 3, comparison.equal_frames) << comparison.ToString();
    EXPECT_THAT(comparison.mismatches,
                ElementsAre(IsMismatch(Kind::kChanged, 0, 22720, 1),
                            IsMismatch(Kind::kChanged, 7000, 29720, 1),
                            IsMismatch(Kind::kChanged, 51199, 22720 + 51199, 1)));
    const int first = virtual_dsp::PatternSample(29720, 0);
    const int second = virtual_dsp::PatternSample(29720, 1);
    EXPECT_THAT(comparison.ToString(),
                HasSubstr(StringPrintf("frame 7000 of the capture: expected %d %d, got %d %d\n",
                                       first, second, first, second ^ 1)));
}

TEST(CompareTest, AudioThatTheMicrophonesNeverHeardIsNamedAsSuch) {
    Sound noise{.channels = 2, .samples = virtual_dsp::PatternFrames(9'000'000, kBlock)};
    EXPECT_FALSE(CompareCapture(Heard(), noise).found);
    EXPECT_FALSE(CompareCapture(Heard(), Sound{.channels = 2}).IsExact());

    Sound inserted = Captured();
    inserted.samples.insert(At(&inserted, 3000), noise.samples.begin(), noise.samples.end());
    EXPECT_THAT(CompareCapture(Heard(), inserted).mismatches,
                ElementsAre(IsMismatch(Kind::kInserted, 3000, 25720, kBlock)));

    // The reader was given more than there was.
    Sound beyond{.channels = 2, .samples = virtual_dsp::PatternFrames(kHeardFrames - 600, 600)};
    beyond.samples.insert(beyond.samples.end(), noise.samples.begin(), noise.samples.end());
    EXPECT_THAT(CompareCapture(Heard(), beyond).mismatches,
                ElementsAre(IsMismatch(Kind::kInserted, 600, kHeardFrames, kBlock)));
}

TEST(CompareTest, AMulawCaptureIsEqualAfterTheSameRoundTrip) {
    // Each of these lies in a segment of its own; the values are those of G.711.
    Sound heard{.samples = {0, 3, 4, -4, 200, -1000, 5000, -12345, 32767, -32768}};
    const Sound coded{.samples = {0, 0, 8, -8, 196, -988, 5116, -12412, 32124, -32124}};
    const Comparison comparison = CompareMulawCapture(heard, coded);
    EXPECT_TRUE(comparison.IsExact()) << comparison.ToString();
    EXPECT_FALSE(CompareCapture(heard, coded).IsExact());
}

}  // namespace
}  // namespace sthal::audio
