// What is played: into the microphones, and by the phone itself.
#include <utility>
#include <vector>

#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "tools/audio/music.h"
#include "tools/audio/scene.h"
#include "tools/audio/speech.h"
#include "tools/audio/wav.h"
#include "tools/sthal/script/value_kinds.h"
#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

using ::aidl::android::media::audio::common::AudioUsage;

constexpr double kSilence = 0.5;  // In seconds: after what is played, and before music.

VerbResult PlaySound(Session& session, const audio::SceneSound& sound) {
    audio::SceneOptions options;
    options.seconds = sound.start_s + audio::Seconds(sound.audio->frames()) + kSilence;
    options.seed = session.NextSeed();
    const auto scene = audio::MakeScene({&sound, 1}, options);
    if (!scene.ok()) return VerbResult::Failed(scene.error());
    session.Play(scene->recording, std::make_shared<const audio::Sound>(*sound.audio),
                 scene->ranges[0].begin);
    return {};
}

VerbResult Say(Session& session, const Values& values) {
    constexpr double kSilenceBefore = 0.3;
    auto speech = audio::Speak(values.Get("TEXT"));
    if (!speech.ok()) return VerbResult::Failed(speech.error());
    return PlaySound(session, {.text = values.Get("TEXT"),
                               .audio = std::move(*speech),
                               .start_s = values.Seconds("after", kSilenceBefore),
                               .gain_db = values.Number("louder")});
}

VerbResult PlayWav(Session& session, const Values& values) {
    const auto file = audio::ReadWav(values.Get("FILE"), audio::Channels::kStereo);
    if (!file.ok()) return VerbResult::Failed(file.error());
    SayConversions(session, values.Get("FILE"), *file);
    session.Play(file->sound);
    return {};
}

VerbResult PlayMusic(Session& session, const Values& values) {
    constexpr double kSeconds = 4;
    constexpr double kDecibels = -12;
    return PlaySound(session, {.text = "music",
                               .audio = audio::MakeMusic(values.Seconds("for", kSeconds)),
                               .start_s = kSilence,
                               .gain_db = kDecibels});
}

VerbResult PlayPattern(Session& session, const Values& values) {
    const auto first = std::stoull(values.Get("FRAME"));
    const auto count = static_cast<size_t>(values.Number("COUNT"));
    session.Play({.channels = 2, .samples = virtual_dsp::PatternFrames(first, count)});
    return {};
}

VerbResult PlayRecording(Session& session, const Values&) {
    auto& recording = session.recording();
    if (!recording) return VerbResult::Expected("a recording", "none so far");
    session.Play(recording->sound);
    recording->playback = session.playback();
    return {};
}

VerbResult PlayTracks(Session& session, const Values& values) {
    std::vector<AudioUsage> usages;
    for (const std::string& name : {values.Get("USAGE"), values.Get("and", "none")}) {
        if (name != "none") usages.push_back(UsageOf(name));
    }
    session.service().PlayTracks(values.Get("USECASE"), std::move(usages));
    return {};
}

}  // namespace

std::span<const Verb> PlayVerbs() {
    // clang-format off
    static constexpr auto kRoom = PhoneParts::kRoom;
    static constexpr Verb kVerbs[] = {
        {"say", "TEXT [after TIME] [louder DECIBELS]", "speak into the microphones", kRoom, Say,
         [](const Values& values) { return WithoutValue(audio::Speak(values.Get("TEXT"))); }},
        {"play wav", "FILE", "play a WAV file into the microphones", kRoom, PlayWav,
         [](const Values& values) { return WithoutValue(audio::ReadWav(values.Get("FILE"), audio::Channels::kStereo)); }},
        {"play music", "[for TIME]", "play the music that generic models know into the microphones", kRoom, PlayMusic},
        {"play pattern", "FRAME COUNT", "play so many frames of test audio into the microphones, of which every sample is known", PhoneParts::kBoard, PlayPattern},
        {"play recording", "", "play the run's recording into the microphones", kRoom, PlayRecording},
        {"play stop", "", "break off what is played into the microphones", kRoom,
         [](Session& session, const Values&) { session.phone().StopPlaying(); return VerbResult{}; }},
        {"play", "USECASE USAGE [and USAGE]", "tell the usages of a usecase's tracks", PhoneParts::kService, PlayTracks},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
