#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "host/virtual_dsp/board/microphone.h"

namespace virtual_dsp {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::vector<int16_t> Ramp(size_t frames, int16_t first) {
    std::vector<int16_t> samples(frames * 2);
    for (int16_t& sample : samples) sample = first++;
    return samples;
}

TEST(MicrophoneTest, PlaysFollowEachOtherWithoutAGapAndReportProgress) {
    Dsp dsp;
    Microphone microphone(dsp, {.speed = MicrophoneOptions::kAsFastAsPossible});
    std::vector<size_t> progress;
    const auto one = Ramp(330, 1);
    const auto two = Ramp(10, -50);

    const auto first = microphone.Play(one, [&](size_t frames) { progress.push_back(frames); });
    ASSERT_TRUE(microphone.Play(two).get());

    EXPECT_TRUE(first.get());
    EXPECT_EQ((std::vector<size_t>{160, 320, 330}), progress);
    EXPECT_EQ(340U, microphone.Position());
    EXPECT_EQ(one, microphone.Heard(0, 330));
    EXPECT_EQ(two, microphone.Heard(330, 1000));
    EXPECT_TRUE(microphone.Heard(340, 1).empty());
}

TEST(MicrophoneTest, StopBreaksOffWhatPlaysAndWhatWaits) {
    Dsp dsp;
    Microphone microphone(dsp, {.speed = MicrophoneOptions::kAsFastAsPossible});
    std::promise<void> begun;
    const auto playing = microphone.Play(Ramp(16'000'000, 0), [&](size_t frames) {
        if (frames == 160) begun.set_value();
    });
    const auto waiting = microphone.Play(Ramp(160, 0));
    begun.get_future().wait();

    microphone.Stop();

    const uint64_t position = microphone.Position();
    EXPECT_FALSE(playing.get());
    EXPECT_FALSE(waiting.get());
    EXPECT_LT(position, 16'000'000U);
    EXPECT_TRUE(microphone.Play(Ramp(160, 0)).get()) << "it plays on";
    EXPECT_EQ(position + 160, microphone.Position()) << "something was heard after Stop()";
}

TEST(MicrophoneTest, SilenceGoesOnBetweenPlaysAtThePaceOfTheClock) {
    Dsp dsp;
    const auto begin = steady_clock::now();
    Microphone microphone(dsp, {.speed = 8.0, .idle = MicrophoneOptions::Idle::kSilence});

    ASSERT_TRUE(microphone.Play(Ramp(8000, 1)).get());

    EXPECT_GE(steady_clock::now() - begin, milliseconds(8000 / 16 / 8));
    const auto deadline = begin + std::chrono::seconds(10);
    uint64_t start = 0;  // Silence before, silence after.
    while (microphone.Heard(start, 1) == std::vector<int16_t>(2)) ++start;
    while (microphone.Position() <= start + 8000 && steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(Ramp(8000, 1), microphone.Heard(start, 8000));
    EXPECT_EQ(std::vector<int16_t>(2), microphone.Heard(start + 8000, 1));
}

}  // namespace
}  // namespace virtual_dsp
