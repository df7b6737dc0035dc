#include "tools/audio/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "tools/audio/compare.h"
#include "tools/audio/find.h"
#include "tools/audio/music.h"
#include "tools/audio/random.h"
#include "tools/audio/speech.h"
#include "tools/audio/waveform.h"

namespace sthal::audio {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(SceneTest, TheHotwordIsHeardWhereTheTruthSays) {
    const Sound hotword = MakeMusic(0.4, /*seed=*/7);
    const std::vector<SceneSound> sounds = {
            {.text = "other", .audio = MakeMusic(1.5, /*seed=*/8)},
            {.text = "hotword",
             .audio = hotword,
             .start_s = 1.25,
             .gain_db = -6,
             .is_hotword = true},
    };
    const auto scene = MakeScene(sounds, {.seconds = 2.5, .second_microphone_delay = 5});

    ASSERT_TRUE(scene.ok()) << scene.error();
    ASSERT_TRUE(scene->hotword);
    EXPECT_EQ(20000U, scene->hotword->begin);
    EXPECT_EQ(hotword.frames(), scene->hotword->end - scene->hotword->begin);
    EXPECT_EQ(40000U, scene->recording.frames());
    const int delays[] = {0, 5};
    for (int microphone = 0; microphone < 2; ++microphone) {
        const Match match = FindTemplate(scene->recording.Channel(microphone), hotword);
        EXPECT_EQ(scene->hotword->begin + static_cast<size_t>(delays[microphone]),
                  match.range.begin)
                << "microphone " << microphone;
    }
}

TEST(FindTest, EveryMatchIsFoundOnceAndInOrder) {
    // Noise, as any music resembles itself a beat later.
    Sound pattern;
    Random random(/*seed=*/7);
    for (int i = 0; i < 6400; ++i) pattern.samples.push_back(ToSample(3000 * random.Noise()));
    const std::vector<SceneSound> sounds = {
            {.text = "faint", .audio = pattern, .start_s = 0.5, .gain_db = -42},
            {.text = "good", .audio = pattern, .start_s = 1},
            {.text = "overlaps the good one", .audio = pattern, .start_s = 1.35, .gain_db = -3},
            {.text = "also good", .audio = pattern, .start_s = 1.9, .gain_db = -6},
            {.text = "other", .audio = MakeMusic(1, /*seed=*/8), .start_s = 2.4},
    };
    const auto scene = MakeScene(sounds, {.noise_dbfs = -60});
    ASSERT_TRUE(scene.ok()) << scene.error();
    const auto begins = [&](double least) {
        std::vector<size_t> frames;
        for (const Match& match : FindMatches(scene->recording, pattern, least)) {
            EXPECT_EQ(pattern.frames(), match.range.end - match.range.begin);
            EXPECT_GE(match.correlation, least);
            frames.push_back(match.range.begin);
        }
        return frames;
    };

    EXPECT_THAT(begins(0.5), ElementsAre(8000, 16000, 30400));
    EXPECT_THAT(begins(0.9), ElementsAre(16000, 30400));
    EXPECT_THAT(FindMatches(pattern, scene->recording, 0.1), IsEmpty()) << "it does not fit";
    EXPECT_THAT(FindMatches(scene->recording, Sound{}, 0.1), IsEmpty());
}

TEST(SceneTest, TheSeedAloneDecidesTheNoise) {
    const auto first = MakeScene({}, {.seconds = 1, .noise_dbfs = -40, .seed = 1});
    const auto again = MakeScene({}, {.seconds = 1, .noise_dbfs = -40, .seed = 1});
    const auto other = MakeScene({}, {.seconds = 1, .noise_dbfs = -40, .seed = 2});

    ASSERT_TRUE(first.ok() && again.ok() && other.ok());
    EXPECT_EQ(first->recording.samples, again->recording.samples);
    EXPECT_FALSE(CompareCapture(first->recording, other->recording).found);
    double power = 0;
    for (const double sample : first->recording.Channel(1).samples) power += sample * sample;
    EXPECT_NEAR(-40, 10 * std::log10(power / 16000 / 32768 / 32768), 0.1);
    EXPECT_LT(FindTemplate(first->recording, first->recording.Channel(1)).correlation, 0.2)
            << "the microphones share their noise";
}

TEST(SceneTest, TheSpokenDemoHoldsTheHotwordOnceAndOnlyIfItIsGiven) {
    const auto hotword = Speak("hello brindle cove");
    if (!hotword.ok() && hotword.error().find("not installed") != std::string::npos) {
        GTEST_SKIP() << hotword.error();
    }
    ASSERT_TRUE(hotword.ok()) << hotword.error();
    const auto with = MakeDemoScene(*hotword);
    const auto without = MakeDemoScene(std::nullopt);

    ASSERT_TRUE(with.ok() && without.ok());
    EXPECT_NEAR(8, Seconds(with->recording.frames()), 1);
    ASSERT_TRUE(with->hotword);
    EXPECT_FALSE(without->hotword);
    // What lies around it are other words.
    const std::vector<Match> matches = FindMatches(with->recording, *hotword, 0.5);
    ASSERT_THAT(matches, SizeIs(1));
    EXPECT_EQ(with->hotword->begin, matches[0].range.begin);
    EXPECT_GT(matches[0].correlation, 0.95);
    EXPECT_THAT(FindMatches(without->recording, *hotword, 0.5), IsEmpty());
}

TEST(SceneTest, WhatCannotBeMixedIsRefused) {
    const std::vector<SceneSound> nowhere = {{.text = "a", .audio = MakeMusic(1), .start_s = -1}};
    EXPECT_THAT(MakeScene(nowhere).error(), HasSubstr("start at -1 s"));
    EXPECT_THAT(MakeScene({}, {.seconds = NAN}).error(), HasSubstr("nan"));
    EXPECT_THAT(MakeScene({}, {.second_microphone_delay = -1}).error(), HasSubstr("-1 frames"));
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
