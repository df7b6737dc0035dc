#include "tools/audio/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "tools/audio/compare.h"
#include "tools/audio/music.h"
#include "tools/audio/speech.h"
#include "tools/audio/waveform.h"

namespace sthal::audio {
namespace {

using ::testing::HasSubstr;

// How alike `pattern` and the stretch of `sound` from `begin` on are, 0..1 (a correlation).
double Likeness(const Sound& sound, size_t begin, const Sound& pattern) {
    double product = 0;
    double sound_power = 0;
    double pattern_power = 0;
    for (size_t i = 0; i < pattern.frames(); ++i) {
        const double s = sound.samples[begin + i];
        const double p = pattern.samples[i];
        product += s * p;
        sound_power += s * s;
        pattern_power += p * p;
    }
    return product / std::sqrt(sound_power * pattern_power);
}

TEST(SceneTest, TheHotwordIsHeardWhereTheTruthSays) {
    const Sound hotword = MakeMusic(0.4, /*seed=*/7);
    const std::vector<Piece> pieces = {
            {.text = "other", .audio = MakeMusic(1.5, /*seed=*/8)},
            {.text = "hotword",
             .audio = hotword,
             .start_s = 1.25,
             .gain_db = -6,
             .is_hotword = true},
    };
    const auto scene = MakeScene(pieces, {.seconds = 2.5, .second_microphone_delay = 5});

    ASSERT_TRUE(scene) << scene.error;
    ASSERT_TRUE(scene->hotword);
    EXPECT_EQ(20000U, scene->hotword->begin);
    EXPECT_EQ(hotword.frames(), scene->hotword->end - scene->hotword->begin);
    EXPECT_EQ(40000U, scene->recording.frames());
    const int delays[] = {0, 5};
    for (int microphone = 0; microphone < 2; ++microphone) {
        const Sound heard = scene->recording.Channel(microphone);
        size_t best = 0;
        for (size_t at = 19000; at < 21000; ++at) {
            if (Likeness(heard, at, hotword) > Likeness(heard, best, hotword)) best = at;
        }
        EXPECT_EQ(scene->hotword->begin + static_cast<size_t>(delays[microphone]), best)
                << "microphone " << microphone;
    }
}

TEST(SceneTest, TheSeedAloneDecidesTheNoise) {
    const auto first = MakeScene({}, {.seconds = 1, .noise_dbfs = -40, .seed = 1});
    const auto again = MakeScene({}, {.seconds = 1, .noise_dbfs = -40, .seed = 1});
    const auto other = MakeScene({}, {.seconds = 1, .noise_dbfs = -40, .seed = 2});

    ASSERT_TRUE(first && again && other);
    EXPECT_EQ(first->recording.samples, again->recording.samples);
    EXPECT_FALSE(CompareCapture(first->recording, other->recording).found);
    double power = 0;
    for (const double sample : first->recording.Channel(1).samples) power += sample * sample;
    EXPECT_NEAR(-40, 10 * std::log10(power / 16000 / 32768 / 32768), 0.1);
    EXPECT_LT(std::abs(Likeness(first->recording.Channel(0), 0, first->recording.Channel(1))), 0.2)
            << "the microphones share their noise";
}

TEST(SceneTest, TheSpokenDemoHoldsTheHotwordOnceAndOnlyIfItIsGiven) {
    const auto hotword = Speak("hello brindle cove");
    if (hotword.error.find("not installed") != std::string::npos) GTEST_SKIP() << hotword.error;
    ASSERT_TRUE(hotword) << hotword.error;
    const auto with = MakeDemoScene(*hotword);
    const auto without = MakeDemoScene(std::nullopt);

    ASSERT_TRUE(with && without) << with.error << without.error;
    EXPECT_NEAR(8, Seconds(with->recording.frames()), 1);
    ASSERT_TRUE(with->hotword);
    EXPECT_FALSE(without->hotword);
    EXPECT_GT(Likeness(with->recording.Channel(0), with->hotword->begin, *hotword), 0.95);
    // What lies around it is another's words, heard louder than noise.
    ASSERT_EQ(3U, with->parts.size());
    for (size_t part : {0, 2}) {
        EXPECT_LT(Likeness(with->recording.Channel(0), with->parts[part].range.begin, *hotword),
                  0.5);
    }
}

TEST(SceneTest, WhatCannotBeMixedIsRefused) {
    const std::vector<Piece> nowhere = {{.text = "a", .audio = MakeMusic(1), .start_s = -1}};
    EXPECT_THAT(MakeScene(nowhere).error, HasSubstr("start at -1 s"));
    EXPECT_THAT(MakeScene({}, {.seconds = NAN}).error, HasSubstr("nan"));
    EXPECT_THAT(MakeScene({}, {.second_microphone_delay = -1}).error, HasSubstr("-1 frames"));
}

TEST(WaveformTest, LoudPartsStandOutAndMarkersPointAtThem) {
    Sound sound{.samples = std::vector<int16_t>(16000)};
    std::fill_n(sound.samples.begin() + 4000, 4000, int16_t{-32768});

    EXPECT_EQ(
            "▁▁██▁▁▁▁\n"
            "  ├┤     hotword 0.250 to 0.500 s\n"
            "       │ end 1.000 s\n",
            DrawWaveform(sound, 8,
                         std::vector<Marker>{{"hotword", {4000, 8000}}, {"end", {16000, 16000}}}));
    EXPECT_EQ("▁▁\n", DrawWaveform(Sound{}, 2));
}

}  // namespace
}  // namespace sthal::audio
