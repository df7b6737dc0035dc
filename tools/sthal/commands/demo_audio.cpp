#include "tools/sthal/commands/demo_audio.h"

#include <cstdio>
#include <utility>

#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/audio/find.h"
#include "tools/audio/music.h"
#include "tools/audio/scene.h"
#include "tools/audio/speech.h"
#include "tools/audio/wav.h"

namespace sthal {

namespace {

using audio::FrameRange;
using audio::Result;
using audio::Sound;

// Where the music of the ambient run begins, and what of it the model knows.
constexpr double kMusicStartSeconds = 1.5;
constexpr double kMusicSeconds = 6.0;
constexpr size_t kMusicPatternFrames = size_t{2} * audio::kSampleRateHz;

Result<DemoAudio> FromFiles(const DemoOptions& options) {
    auto microphone = audio::ReadWav(*options.microphone_file, audio::Channels::kStereo);
    if (!microphone) return Result<DemoAudio>::Error(microphone.error);
    auto hotword = audio::ReadWav(*options.hotword_file, audio::Channels::kMono);
    if (!hotword) return Result<DemoAudio>::Error(hotword.error);
    DemoAudio made;
    for (const auto* file : {&*microphone, &*hotword}) {
        for (const std::string& change : file->conversions) made.notes.push_back(change);
    }
    made.recording = microphone->sound;
    made.pattern = hotword->sound;
    const audio::Match match = audio::FindTemplate(made.recording, made.pattern);
    char text[120];
    (void)std::snprintf(text, sizeof(text), "the hotword fits best at %.3f s, correlation %.2f",
                        audio::Seconds(match.range.begin), match.correlation);
    made.notes.emplace_back(text);
    if (match.correlation >= Threshold(options)) made.expected = match.range;
    return Result<DemoAudio>::Of(std::move(made));
}

Result<DemoAudio> FromSpeech(const DemoOptions& options) {
    const auto hotword = audio::Speak(options.phrase);
    if (!hotword) return Result<DemoAudio>::Error(hotword.error);
    std::optional<Sound> spoken;
    if (!options.without_hotword) spoken = *hotword;
    const auto scene = audio::MakeDemoScene(spoken);
    if (!scene) return Result<DemoAudio>::Error(scene.error);
    DemoAudio made;
    made.recording = scene->recording;
    made.pattern = *hotword;
    made.expected = scene->hotword;
    return Result<DemoAudio>::Of(std::move(made));
}

Result<DemoAudio> FromMusic(const DemoOptions& options) {
    const Sound music = audio::MakeMusic(kMusicSeconds);
    std::vector<audio::Piece> pieces;
    if (!options.without_hotword) {
        pieces.push_back({.text = "music",
                          .audio = music,
                          .start_s = kMusicStartSeconds,
                          .gain_db = -12,
                          .is_hotword = true});
    }
    const auto scene = audio::MakeScene(pieces);
    if (!scene) return Result<DemoAudio>::Error(scene.error);
    DemoAudio made;
    made.recording = scene->recording;
    made.pattern.samples.assign(music.samples.begin(), music.samples.begin() + kMusicPatternFrames);
    if (scene->hotword) {
        made.expected =
                FrameRange{scene->hotword->begin, scene->hotword->begin + kMusicPatternFrames};
    }
    return Result<DemoAudio>::Of(std::move(made));
}

Result<DemoAudio> MakeAny(const DemoOptions& options) {
    if (options.microphone_file) return FromFiles(options);
    if (options.story == DemoOptions::Story::kAmbient) return FromMusic(options);
    return FromSpeech(options);
}

}  // namespace

Result<DemoAudio> MakeDemoAudio(const DemoOptions& options) {
    auto made = MakeAny(options);
    if (!made) return made;
    const size_t frames = made->pattern.frames();
    if (frames < virtual_dsp::kMinTemplateFrames || frames > virtual_dsp::kMaxTemplateFrames) {
        char text[160];
        (void)std::snprintf(
                text, sizeof(text),
                "the hotword is %.2f s long; the DSP takes %.1f to %.1f s: cut the file "
                "or choose another phrase",
                audio::Seconds(frames), audio::Seconds(virtual_dsp::kMinTemplateFrames),
                audio::Seconds(virtual_dsp::kMaxTemplateFrames));
        return Result<DemoAudio>::Error(text);
    }
    return made;
}

}  // namespace sthal
