#include "tools/sthal/script/recording.h"

#include <cstdio>
#include <utility>

#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/audio/find.h"
#include "tools/audio/music.h"
#include "tools/audio/scene.h"
#include "tools/audio/speech.h"
#include "tools/audio/wav.h"
#include "tools/audio/waveform.h"

namespace sthal {

namespace {

// The recording, if a model can be made of its pattern.
host::Result<Recording> Checked(Recording recording) {
    const size_t frames = recording.pattern.frames();
    if (frames >= virtual_dsp::kMinTemplateFrames && frames <= virtual_dsp::kMaxTemplateFrames) {
        return recording;
    }
    char text[160];
    (void)std::snprintf(text, sizeof(text),
                        "the hotword is %.2f s long; the DSP takes %.1f to %.1f s: cut the file or "
                        "choose another phrase",
                        audio::Seconds(frames), audio::Seconds(virtual_dsp::kMinTemplateFrames),
                        audio::Seconds(virtual_dsp::kMaxTemplateFrames));
    return host::Error(text);
}

}  // namespace

host::Result<Recording> RecordSpeech(const std::string& hotword, bool is_spoken) {
    const auto speech = audio::Speak(hotword);
    if (!speech.ok()) return host::Error(speech.error());
    const auto scene = audio::MakeDemoScene(is_spoken ? std::optional(*speech)
                                                      : std::optional<audio::Sound>());
    if (!scene.ok()) return host::Error(scene.error());
    return Checked({.sound = scene->recording, .pattern = *speech, .expected = scene->hotword});
}

host::Result<Recording> RecordMusic(bool is_played) {
    // Where the music begins, and what of it the model knows.
    constexpr double kStartSeconds = 1.5;
    constexpr double kSeconds = 6.0;
    constexpr double kDecibels = -12;
    constexpr size_t kPatternFrames = size_t{2} * audio::kSampleRateHz;
    const audio::Sound music = audio::MakeMusic(kSeconds);
    std::vector<audio::SceneSound> sounds;
    if (is_played) {
        sounds.push_back({.text = "music",
                          .audio = music,
                          .start_s = kStartSeconds,
                          .gain_db = kDecibels,
                          .is_hotword = true});
    }
    auto scene = audio::MakeScene(sounds);
    if (!scene.ok()) return host::Error(scene.error());
    if (scene->hotword) scene->hotword->end = scene->hotword->begin + kPatternFrames;
    Recording made{.sound = std::move(scene->recording),
                   .pattern = {},
                   .expected = scene->hotword,
                   .label = "the music of the model"};
    made.pattern.samples.assign(music.samples.begin(), music.samples.begin() + kPatternFrames);
    return made;
}

host::Result<Recording> ReadRecording(const std::string& path, const std::string& hotword_path) {
    auto recording = audio::ReadWav(path, audio::Channels::kStereo);
    if (!recording.ok()) return host::Error(recording.error());
    auto hotword = audio::ReadWav(hotword_path, audio::Channels::kMono);
    if (!hotword.ok()) return host::Error(hotword.error());
    Recording made{.sound = std::move(recording->sound), .pattern = std::move(hotword->sound)};
    for (const auto& conversions : {recording->conversions, hotword->conversions}) {
        made.notes.insert(made.notes.end(), conversions.begin(), conversions.end());
    }
    return Checked(std::move(made));
}

void FindPattern(Recording& recording, double threshold) {
    const audio::Match match = audio::FindTemplate(recording.sound, recording.pattern);
    char text[120];
    (void)std::snprintf(text, sizeof(text), "the hotword fits best at %.3f s, correlation %.2f",
                        audio::Seconds(match.range.begin), match.correlation);
    recording.notes.emplace_back(text);
    if (match.correlation >= threshold) recording.expected = match.range;
}

std::string Draw(const Recording& recording) {
    constexpr size_t kColumns = 64;
    std::vector<audio::Marker> markers;
    if (recording.expected) markers.push_back({recording.label, *recording.expected});
    return audio::DrawWaveform(recording.sound.Channel(0), kColumns, markers);
}

}  // namespace sthal
