#include "tools/sthal/verb_actions.h"

#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <aidl/android/media/soundtrigger/RecognitionMode.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/audio/file_bytes.h"
#include "tools/audio/music.h"
#include "tools/audio/scene.h"
#include "tools/audio/speech.h"
#include "tools/audio/wav.h"
#include "tools/sthal/value_kinds.h"

namespace sthal {

namespace {

using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::soundtrigger::AudioCapabilities;
using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::RecognitionMode;
using audio::Sound;
namespace tamberlo = ::vendor::quarno::brindlecove::audio::hal::utils::tamberlo;

constexpr int kDefaultIoHandle = 13;

// What of the music a generic model knows, and how the room hears it.
constexpr size_t kMusicPatternFrames = size_t{2} * audio::kSampleRateHz;
constexpr double kMusicDecibels = -12;
constexpr double kSilenceAfter = 0.5;

double SecondsOr(const Values& values, std::string_view option, double otherwise) {
    return ParseSeconds(values.Get(option)).value_or(otherwise);
}

audio::Result<Sound> ReadWav(Session& session, const std::string& path, audio::Channels channels) {
    auto file = audio::ReadWav(path, channels);
    if (!file) return audio::Result<Sound>::Error(file.error);
    for (const std::string& change : file->conversions) {
        session.Say(std::string(path).append(": ").append(change));
    }
    return audio::Result<Sound>::Of(std::move(file.value->sound));
}

audio::Result<Sound> PatternOf(Session& session, const Values& values) {
    if (values.Has("wav")) return ReadWav(session, values.Get("wav"), audio::Channels::kMono);
    if (values[0] == "keyphrase" || values.Has("say")) {
        return audio::Speak(values.Get("say", values[1]));
    }
    Sound music = audio::MakeMusic(audio::Seconds(kMusicPatternFrames));
    return audio::Result<Sound>::Of(std::move(music));
}

Outcome PlayPiece(Session& session, audio::Piece piece) {
    audio::SceneOptions options;
    options.seconds = piece.start_s + audio::Seconds(piece.audio->frames()) + kSilenceAfter;
    options.seed = session.NextSeed();
    const auto scene = audio::MakeScene({&piece, 1}, options);
    if (!scene) return Outcome::Failed(scene.error);
    return session.Play(scene->recording);
}

CaptureOptions CaptureOptionsOf(const Values& values) {
    CaptureOptions options;
    options.io_handle = static_cast<int>(values.Number("io", kDefaultIoHandle));
    options.channels = static_cast<int>(values.Number("channels", 2));
    return options;
}

}  // namespace

// --- models ---

Outcome RunLoad(Session& session, const Values& values) {
    constexpr double kHotwordThreshold = 0.7;
    constexpr double kMusicThreshold = 0.9;
    Session::LoadRequest request;
    request.is_generic = values[0] == "generic";
    request.name = values[1];
    request.threshold =
            values.Number("threshold", request.is_generic ? kMusicThreshold : kHotwordThreshold);
    request.total_bytes = ParseBytes(values.Get("size")).value_or(0);
    auto pattern = PatternOf(session, values);
    if (!pattern) return Outcome::Failed(pattern.error);
    const size_t frames = pattern->frames();
    if (frames < virtual_dsp::kMinTemplateFrames || frames > virtual_dsp::kMaxTemplateFrames) {
        char text[120];
        (void)std::snprintf(text, sizeof(text), "%.1f to %.1f s of audio for a model",
                            audio::Seconds(virtual_dsp::kMinTemplateFrames),
                            audio::Seconds(virtual_dsp::kMaxTemplateFrames));
        return Outcome::Expected(text, std::to_string(audio::Seconds(frames)) + " s");
    }
    request.pattern = std::move(*pattern.value);
    return session.Load(request);
}

Outcome RunStart(Session& session, const Values& values) {
    RecognitionConfig config;
    config.captureRequested = !values.Has("no-capture");
    if (values.Has("echo-canceller")) {
        config.audioCapabilities |= static_cast<int32_t>(AudioCapabilities::ECHO_CANCELLATION);
    }
    if (values.Has("noise-suppression")) {
        config.audioCapabilities |= static_cast<int32_t>(AudioCapabilities::NOISE_SUPPRESSION);
    }
    const Session::Model* const model = session.FindModel(values[0]);
    if (model != nullptr && !model->is_generic) {
        auto& extra = config.phraseRecognitionExtras.emplace_back();
        extra.recognitionModes = static_cast<int32_t>(RecognitionMode::VOICE_TRIGGER);
        extra.confidenceLevel = static_cast<int32_t>(values.Number("confidence", 50));
    }
    return session.Start(values[0], config,
                         static_cast<int>(values.Number("io", kDefaultIoHandle)));
}

Outcome RunProperties(Session& session, const Values&) {
    return session.ReadProperties();
}

// --- captures ---

Outcome RunCapture(Session& session, const Values& values) {
    return session.StartCapture(CaptureOptionsOf(values), SecondsOr(values, "for", 0),
                                values.Get("wav"));
}

Outcome RunZeroLatency(Session& session, const Values& values) {
    CaptureOptions options = CaptureOptionsOf(values);
    options.is_internal_force = true;
    return session.StartCapture(options, SecondsOr(values, "for", 0), values.Get("wav"));
}

// --- the room ---

Outcome RunSay(Session& session, const Values& values) {
    auto speech = audio::Speak(values[0]);
    if (!speech) return Outcome::Failed(speech.error);
    constexpr double kSilenceBefore = 0.3;
    return PlayPiece(session, {.text = values[0],
                               .audio = std::move(*speech.value),
                               .start_s = SecondsOr(values, "after", kSilenceBefore),
                               .gain_db = values.Number("louder", 0)});
}

Outcome RunPlayWav(Session& session, const Values& values) {
    const auto recording = ReadWav(session, values[0], audio::Channels::kStereo);
    if (!recording) return Outcome::Failed(recording.error);
    return session.Play(*recording);
}

Outcome RunPlayMusic(Session& session, const Values& values) {
    constexpr double kMusicSeconds = 4;
    Sound music = audio::MakeMusic(SecondsOr(values, "for", kMusicSeconds));
    return PlayPiece(session, {.text = "music",
                               .audio = std::move(music),
                               .start_s = kSilenceAfter,
                               .gain_db = kMusicDecibels});
}

Outcome RunHush(Session& session, const Values&) {
    session.phone().board().microphone().Stop();
    return {};
}

// --- the DSP ---

Outcome RunDspOnline(Session& session, const Values&) {
    if (session.phone().board().dsp().IsUp()) {
        session.phone().ReportDsp(true);
    } else {
        session.phone().BootDsp();
    }
    return {};
}

Outcome RunJournal(Session& session, const Values& values) {
    constexpr double kLatest = 20;
    const auto entries = session.phone().board().dsp().journal().Snapshot();
    const auto count = static_cast<size_t>(values.Number("COUNT", kLatest));
    for (size_t i = entries.size() - std::min(count, entries.size()); i < entries.size(); ++i) {
        const virtual_dsp::JournalEntry& entry = entries[i];
        session.phone().timeline().LineAt(
                entry.boottime_ns, Lane::kDsp,
                entry.source == "command" ? entry.text : entry.source + ": " + entry.text);
    }
    return {};
}

Outcome RunForget(Session& session, const Values&) {
    session.phone().board().dsp().journal().Clear();
    session.ForgetLog();
    return {};
}

// --- around the HAL ---

Outcome RunPlayTracks(Session& session, const Values& values) {
    std::vector<AudioUsage> usages;
    for (const std::string& name : {values[1], values.Get("and", "none")}) {
        if (name != "none") usages.push_back(UsageOf(name));
    }
    session.phone().PlayTracks(values[0], usages);
    return {};
}

Outcome RunTuningLoad(Session& session, const Values& values) {
    const std::string& path = values[0];
    const auto bytes = audio::ReadFileBytes(path);
    if (!bytes) return Outcome::Failed(bytes.error);
    // A binary file is shipped as it is, right or wrong: the HAL has to cope with either.
    if (std::ranges::find(*bytes, 0) != bytes->end()) {
        const auto file = tamberlo::ReadTuningFile(*bytes);
        if (!file.file) session.Say(path + " is no tuning file: " + file.error.what);
        session.phone().board().SetTuningFile(*bytes);
        return {};
    }
    const auto text = tamberlo::TuningFileFromText(
            {reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    if (!text.file) {
        return Outcome::Failed(path + ":" + std::to_string(text.line) + ": " + text.what);
    }
    const auto image = tamberlo::WriteTuningFile(*text.file);
    if (!image) return Outcome::Failed(path + " makes a tuning file that is too large");
    session.phone().board().SetTuningFile(*image);
    return {};
}

Outcome RunTuningShow(Session& session, const Values&) {
    std::string text;
    for (const auto& [id, value] : session.phone().board().dsp().settings().tuning) {
        text += std::to_string(id) + " " + virtual_dsp::CommandName(id) + " = " +
                std::to_string(value) + "\n";
    }
    session.Show(text.empty() ? "the DSP has no tuning" : text);
    return {};
}

Outcome RunDump(Session& session, const Values& values) {
    const std::string tag = values.Get("TAG");
    const std::string_view arguments[] = {tag};
    session.Show(session.phone().Dump(std::span(arguments).first(tag.empty() ? 0 : 1)));
    return {};
}

Outcome RunLogLevel(Session& session, const Values& values) {
    constexpr std::pair<std::string_view, android::base::LogSeverity> kLevels[] = {
            {"verbose", android::base::VERBOSE}, {"debug", android::base::DEBUG},
            {"info", android::base::INFO},       {"warning", android::base::WARNING},
            {"error", android::base::ERROR},
    };
    for (const auto& [name, severity] : kLevels) {
        if (values[0] == name) session.phone().SetLogLevel(severity);
    }
    return {};
}

}  // namespace sthal
