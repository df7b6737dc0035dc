// Models, and their recognition.
#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <aidl/android/media/soundtrigger/Properties.h>
#include <aidl/android/media/soundtrigger/RecognitionMode.h>

#include <charconv>
#include <cstdio>
#include <utility>

#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/audio/music.h"
#include "tools/audio/speech.h"
#include "tools/audio/wav.h"
#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

using ::aidl::android::media::soundtrigger::AudioCapabilities;
using ::aidl::android::media::soundtrigger::Properties;
using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::RecognitionMode;
using ::aidl::android::media::soundtrigger::SoundModelType;

// What of the music a generic model knows.
constexpr size_t kMusicPatternFrames = size_t{2} * audio::kSampleRateHz;

// What a model is made of, as it is recorded, spoken or composed.
host::Result<audio::DecodedAudio> SourceOf(const Values& values) {
    if (values.Has("wav")) return audio::ReadWav(values.Get("wav"), audio::Channels::kMono);
    if (values.Has("generic") && !values.Has("say")) {
        return audio::DecodedAudio{.sound = audio::MakeMusic(audio::Seconds(kMusicPatternFrames)),
                                   .conversions = {}};
    }
    auto speech = audio::Speak(values.Get("say", values.Get("NAME")));
    if (!speech.ok()) return host::Error(speech.error());
    return audio::DecodedAudio{.sound = std::move(*speech), .conversions = {}};
}

// The same, if a model can be made of it.
host::Result<audio::DecodedAudio> PatternOf(const Values& values) {
    auto source = SourceOf(values);
    if (!source.ok()) return source;
    const size_t frames = source->sound.frames();
    if (frames >= virtual_dsp::kMinTemplateFrames && frames <= virtual_dsp::kMaxTemplateFrames) {
        return source;
    }
    char text[120];
    (void)std::snprintf(text, sizeof(text), "expected %.1f to %.1f s of audio for a model, found",
                        audio::Seconds(virtual_dsp::kMinTemplateFrames),
                        audio::Seconds(virtual_dsp::kMaxTemplateFrames));
    return host::Error(text + (" " + std::to_string(audio::Seconds(frames)) + " s"));
}

VerbResult Load(Session& session, const Values& values) {
    constexpr double kHotwordThreshold = 0.7;
    constexpr double kMusicThreshold = 0.9;
    std::optional<Recording>& recording = session.recording();
    const bool is_recorded = values.Has("recorded");
    if (is_recorded && !recording) return VerbResult::Expected("a recording", "none so far");
    auto pattern = is_recorded ? audio::DecodedAudio{.sound = recording->pattern, .conversions = {}}
                               : PatternOf(values);
    if (!pattern.ok()) return VerbResult::Failed(pattern.error());
    SayConversions(session, values.Get("wav"), *pattern);
    const bool is_generic = values.Has("generic");
    virtual_dsp::SoundModel model;
    model.engine = is_generic ? virtual_dsp::Engine::kAmbientMusic : virtual_dsp::Engine::kHotword;
    model.threshold = static_cast<float>(
            values.Number("threshold", is_generic ? kMusicThreshold : kHotwordThreshold));
    model.pcm_template = pattern->sound.samples;
    const auto bytes =
            virtual_dsp::BuildSoundModel(model, ParseBytes(values.Get("size")).value_or(0));
    LoadedModel loaded{.is_generic = is_generic, .pattern = std::move(pattern->sound)};
    const int result =
            session.service().Load(is_generic ? SoundModelType::GENERIC : SoundModelType::KEYPHRASE,
                                   bytes, values.Get("NAME"), &loaded.handle);
    session.NoteResult(result);
    if (result != 0) return {};
    if (is_recorded) recording->model = loaded;
    session.models()[values.Get("NAME")] = std::move(loaded);
    return {};
}

host::Result<void> CheckLoad(const Values& values) {
    return values.Has("recorded") ? host::Result<void>() : WithoutValue(PatternOf(values));
}

// The handle of a model, or any other number.
std::optional<int> HandleOf(Session& session, const std::string& name) {
    if (const LoadedModel* const model = session.FindModel(name)) return model->handle;
    int handle = 0;
    const auto [end, problem] = std::from_chars(name.data(), name.data() + name.size(), handle);
    if (problem == std::errc() && end == name.data() + name.size()) return handle;
    return std::nullopt;
}

template <int (Service::*kCall)(int handle)>
VerbResult CallModel(Session& session, const Values& values) {
    const std::string name = values.Get("MODEL");
    const auto handle = HandleOf(session, name);
    if (!handle) return VerbResult::Expected("the name of a model or a handle", "'" + name + "'");
    session.NoteResult((session.service().*kCall)(*handle));
    return {};
}

VerbResult Unload(Session& session, const Values& values) {
    const auto handle = HandleOf(session, values.Get("MODEL"));
    VerbResult unloaded = CallModel<&Service::Unload>(session, values);
    if (unloaded.ok() && session.last_result() == 0) {
        std::erase_if(session.models(),
                      [&](const auto& entry) { return entry.second.handle == *handle; });
    }
    return unloaded;
}

VerbResult Start(Session& session, const Values& values) {
    LoadedModel* const model = session.FindModel(values.Get("MODEL"));
    if (model == nullptr) return Session::NoSuchModel(values.Get("MODEL"));
    RecognitionConfig config;
    config.captureRequested = !values.Has("no-capture");
    if (values.Has("echo-canceller")) {
        config.audioCapabilities |= static_cast<int32_t>(AudioCapabilities::ECHO_CANCELLATION);
    }
    if (values.Has("noise-suppression")) {
        config.audioCapabilities |= static_cast<int32_t>(AudioCapabilities::NOISE_SUPPRESSION);
    }
    if (!model->is_generic) {
        auto& extra = config.phraseRecognitionExtras.emplace_back();
        extra.recognitionModes = static_cast<int32_t>(RecognitionMode::VOICE_TRIGGER);
        extra.confidenceLevel = static_cast<int32_t>(values.Number("confidence", 50));
    }
    const int io_handle = IoHandleOf(values);
    const int result = session.service().Start(model->handle, io_handle, config);
    session.NoteResult(result);
    if (result == 0) model->io_handle = io_handle;
    return {};
}

VerbResult ReadProperties(Session& session, const Values&) {
    Properties properties;
    const int result = session.service().GetProperties(&properties);
    session.NoteResult(result);
    if (result == 0) session.Show(properties.toString());
    return {};
}

}  // namespace

std::span<const Verb> ModelVerbs() {
    // clang-format off
    static constexpr auto kService = PhoneParts::kService;
    static constexpr Verb kVerbs[] = {
        {"load", "keyphrase|generic NAME [say TEXT] [wav FILE] [recorded] [threshold RATIO] [size BYTES]",
         "load a model of a spoken text (the name, without one), of a WAV file, of what is made for it with the run's recording, or, generic, of music; padded to a size", kService, Load, CheckLoad},
        {"unload", "MODEL", "unload a model", kService, Unload},
        {"start", "MODEL [io COUNT] [confidence PERCENT] [echo-canceller] [noise-suppression] [no-capture]",
         "start recognition, with the io handle of its capture and what a phrase's extra says", kService, Start},
        {"stop", "MODEL", "stop recognition", kService, CallModel<&Service::Stop>},
        {"force", "MODEL", "have the DSP report a detection now", kService, CallModel<&Service::ForceRecognition>},
        {"properties", "", "ask the HAL for its properties", kService, ReadProperties},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
