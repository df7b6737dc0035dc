#include "tools/audio/wav.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <numeric>

#include "tools/audio/speech.h"

namespace sthal::audio {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class WavTest : public ::testing::Test {
  protected:
    std::string Path(const std::string& name) const {
        return std::string(folder_.path) + "/" + name;
    }

    // A tone of 1 kHz at half of full scale, the second channel at a quarter.
    std::string WriteTone(const std::string& name, int rate_hz, int channels, int format) const {
        std::vector<float> samples;
        for (int i = 0; i < rate_hz; ++i) {
            const double tone = std::sin(2 * std::numbers::pi * 1000 * i / rate_hz);
            for (int c = 0; c < channels; ++c) {
                samples.push_back(static_cast<float>(tone * 0.5 / (1 + c)));
            }
        }
        SF_INFO info{};
        info.samplerate = rate_hz;
        info.channels = channels;
        info.format = format;
        SNDFILE* const file = sf_open(Path(name).c_str(), SFM_WRITE, &info);
        EXPECT_EQ(rate_hz, sf_writef_float(file, samples.data(), rate_hz));
        EXPECT_EQ(0, sf_close(file));
        return Path(name);
    }

    const TemporaryDir folder_;
};

TEST_F(WavTest, WhatIsWrittenIsReadBackBitByBit) {
    Sound sound{.channels = 2, .samples = std::vector<int16_t>(65536)};
    std::iota(sound.samples.begin(), sound.samples.end(), int16_t{-32768});

    ASSERT_TRUE(WriteWav(Path("all.wav"), sound).ok());
    const auto read = ReadWav(Path("all.wav"), Channels::kStereo);

    ASSERT_TRUE(read.ok()) << read.error();
    EXPECT_EQ(2, read->sound.channels);
    EXPECT_EQ(sound.samples, read->sound.samples);
    EXPECT_THAT(read->conversions, ElementsAre());
}

TEST_F(WavTest, APipeIsWrittenAndReadLikeAFile) {
    const Sound sound{.samples = {1, -2, 3}};
    android::base::unique_fd out, in;
    ASSERT_TRUE(android::base::Pipe(&out, &in));
    const auto path = [](int fd) { return "/proc/self/fd/" + std::to_string(fd); };

    ASSERT_TRUE(WriteWav(path(in.get()), sound).ok());
    in.reset();
    const auto read = ReadWav(path(out.get()), Channels::kMono);

    ASSERT_TRUE(read.ok()) << read.error();
    EXPECT_EQ(sound.samples, read->sound.samples) << "the header does not fit what follows";
}

TEST_F(WavTest, RateEncodingAndChannelsAreConvertedAndSaidToBe) {
    const auto stereo = ReadWav(WriteTone("8k.wav", 8000, 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT),
                                Channels::kStereo);
    ASSERT_TRUE(stereo.ok()) << stereo.error();
    EXPECT_THAT(stereo->conversions,
                ElementsAre("32 bit float to 16-bit PCM", "sample rate 8000 Hz to 16000 Hz"));
    ASSERT_EQ(16000U, stereo->sound.frames());
    // Away from the ends it is the same tone at the same time, in the same channel.
    for (size_t i = 1000; i < 15000; ++i) {
        const double tone = 32768 * std::sin(2 * std::numbers::pi * static_cast<double>(i) / 16);
        ASSERT_NEAR(tone / 2, stereo->sound.samples[2 * i], 50) << "frame " << i;
        ASSERT_NEAR(tone / 4, stereo->sound.samples[2 * i + 1], 50) << "frame " << i;
    }

    const auto six = ReadWav(WriteTone("6.wav", 48000, 6, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24),
                             Channels::kMono);
    ASSERT_TRUE(six.ok()) << six.error();
    EXPECT_EQ(1, six->sound.channels);
    EXPECT_EQ(16000U, six->sound.frames());
    EXPECT_THAT(six->conversions,
                ElementsAre("6 channels: only the first 2 kept", HasSubstr("24 bit"),
                            HasSubstr("48000 Hz"), HasSubstr("to the first")));

    const auto doubled = ReadWav(WriteTone("1.wav", 16000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16),
                                 Channels::kStereo);
    ASSERT_TRUE(doubled.ok()) << doubled.error();
    EXPECT_EQ(16000U, doubled->sound.frames());
    EXPECT_EQ(doubled->sound.Channel(0).samples, doubled->sound.Channel(1).samples);
}

TEST_F(WavTest, AnUnusableFileIsRefusedWithWhatIsWrongAndWhatToDo) {
    const std::string good = WriteTone("good.wav", 16000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::string bytes;
    ASSERT_TRUE(android::base::ReadFileToString(good, &bytes));
    const struct {
        std::string bytes;
        std::string error;
    } cases[] = {
            {"", "is empty"},
            {std::string(5000, 'x'), "is not an audio file that can be read"},
            {bytes.substr(0, 30), "is a damaged WAV file"},
            {bytes.substr(0, 44), "cut short: its header promises 32000 bytes"},
            {bytes.substr(0, 20000), "promises 12044 bytes of audio more than there are"},
    };
    for (const auto& [content, error] : cases) {
        ASSERT_TRUE(android::base::WriteStringToFile(content, Path("bad.wav")));
        const auto read = ReadWav(Path("bad.wav"), Channels::kMono);
        ASSERT_FALSE(read.ok()) << error;
        EXPECT_THAT(read.error(), StartsWith(Path("bad.wav") + " "));
        EXPECT_THAT(read.error(), HasSubstr(error));
    }
    EXPECT_THAT(ReadWav(Path("none.wav"), Channels::kMono).error(), HasSubstr("No such file"));
    EXPECT_THAT(ReadWav(Path(""), Channels::kMono).error(), HasSubstr("Is a directory"));
}

TEST_F(WavTest, AFailedWriteLeavesNoFileAndKeepsTheOldOne) {
    EXPECT_THAT(WriteWav(Path("none/a.wav"), Sound{.samples = {1}}).error(),
                HasSubstr("No such file"));
    ASSERT_EQ(0, mkdir(Path("taken").c_str(), 0755));
    EXPECT_THAT(WriteWav(Path("taken"), Sound{.samples = {1}}).error(),
                HasSubstr("Is a directory"));
    EXPECT_TRUE(WriteWav("/dev/null", Sound{.samples = {1}}).ok());
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null")) << "a device was replaced";

    for (const auto& entry : std::filesystem::directory_iterator(folder_.path)) {
        EXPECT_EQ("taken", entry.path().filename()) << "left behind";
    }
}

TEST(SpeechTest, WhatCannotBeSpokenIsRefusedWithTheReason) {
    EXPECT_THAT(Speak("").error(), HasSubstr("0 bytes"));
    const auto no_voice = Speak("hello", {.voice = "zz"});
    ASSERT_FALSE(no_voice.ok());
    if (no_voice.error().find("not installed") != std::string::npos) {
        GTEST_SKIP() << no_voice.error();
    }
    EXPECT_THAT(no_voice.error(), HasSubstr("voice does not exist"));
    EXPECT_THAT(Speak("...").error(), HasSubstr("nothing to say"));
    EXPECT_THAT(Speak("hello", {.timeout = std::chrono::milliseconds(0)}).error(),
                HasSubstr("timed out"));
    EXPECT_THAT(Speak("hello", {.program = "no-such-program"}).error(),
                HasSubstr("apt-get install espeak-ng"));
}

}  // namespace
}  // namespace sthal::audio
