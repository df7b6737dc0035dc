#include "tools/sthal/script/verb_actions.h"

#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <aidl/android/media/soundtrigger/RecognitionMode.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/audio/file_bytes.h"
#include "tools/audio/music.h"
#include "tools/audio/scene.h"
#include "tools/audio/speech.h"
#include "tools/audio/wav.h"
#include "tools/sthal/script/value_kinds.h"

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

void SayConversions(Session& session, const std::string& path, const audio::DecodedAudio& file) {
    for (const std::string& change : file.conversions) {
        session.Say(std::string(path).append(": ").append(change));
    }
}

// What a model is made of, as it is recorded, spoken or composed.
audio::Result<audio::DecodedAudio> SourceOf(const Values& values) {
    using Source = audio::Result<audio::DecodedAudio>;
    if (values.Has("wav")) return audio::ReadWav(values.Get("wav"), audio::Channels::kMono);
    if (values[0] == "generic" && !values.Has("say")) {
        return Source::Of({.sound = audio::MakeMusic(audio::Seconds(kMusicPatternFrames)),
                           .conversions = {}});
    }
    auto speech = audio::Speak(values.Get("say", values[1]));
    if (!speech) return Source::Error(speech.error);
    return Source::Of({.sound = std::move(*speech.value), .conversions = {}});
}

// The same, if a model can be made of it.
audio::Result<audio::DecodedAudio> PatternOf(const Values& values) {
    auto source = SourceOf(values);
    if (!source) return source;
    const size_t frames = source->sound.frames();
    if (frames >= virtual_dsp::kMinTemplateFrames && frames <= virtual_dsp::kMaxTemplateFrames) {
        return source;
    }
    char text[120];
    (void)std::snprintf(text, sizeof(text), "expected %.1f to %.1f s of audio for a model, found",
                        audio::Seconds(virtual_dsp::kMinTemplateFrames),
                        audio::Seconds(virtual_dsp::kMaxTemplateFrames));
    return audio::Result<audio::DecodedAudio>::Error(
            text + (" " + std::to_string(audio::Seconds(frames)) + " s"));
}

// A tuning file, of its bytes or of its text. A binary one is shipped as it is, right or wrong: the
// HAL has to cope with either.
audio::Result<std::vector<uint8_t>> TuningImage(const std::string& path) {
    using Image = audio::Result<std::vector<uint8_t>>;
    auto bytes = audio::ReadFileBytes(path);
    if (!bytes || std::ranges::find(*bytes, 0) != bytes->end()) return bytes;
    const auto text = tamberlo::TuningFileFromText(
            {reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    if (!text.file) return Image::Error(path + ":" + std::to_string(text.line) + ": " + text.what);
    auto image = tamberlo::WriteTuningFile(*text.file);
    if (!image) return Image::Error(path + " makes a tuning file that is too large");
    return Image::Of(std::move(*image));
}

// What a pipe or a terminal holds can be read once only, by the verb.
bool CanBeReadTwice(const std::string& path) {
    std::error_code error;
    return !std::filesystem::is_fifo(path, error) &&
           !std::filesystem::is_character_file(path, error);
}

Outcome PlayPiece(Session& session, audio::Piece piece) {
    audio::SceneOptions options;
    options.seconds = piece.start_s + audio::Seconds(piece.audio->frames()) + kSilenceAfter;
    options.seed = session.NextSeed();
    const auto scene = audio::MakeScene({&piece, 1}, options);
    if (!scene) return Outcome::Failed(scene.error);
    Outcome played = session.Play(scene->recording);
    session.phone().timeline().record().AddSaid(*piece.audio, scene->parts[0].range.begin);
    return played;
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
    auto pattern = PatternOf(values);
    if (!pattern) return Outcome::Failed(pattern.error);
    SayConversions(session, values.Get("wav"), *pattern);
    request.pattern = std::move(pattern.value->sound);
    return session.Load(request);
}

std::string LoadProblem(const Values& values) {
    return CanBeReadTwice(values.Get("wav")) ? PatternOf(values).error : "";
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

std::string SayProblem(const Values& values) {
    return audio::Speak(values[0]).error;
}

Outcome RunPlayWav(Session& session, const Values& values) {
    const auto file = audio::ReadWav(values[0], audio::Channels::kStereo);
    if (!file) return Outcome::Failed(file.error);
    SayConversions(session, values[0], *file);
    return session.Play(file->sound);
}

std::string PlayWavProblem(const Values& values) {
    if (!CanBeReadTwice(values[0])) return {};
    return audio::ReadWav(values[0], audio::Channels::kStereo).error;
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
    const auto image = TuningImage(values[0]);
    if (!image) return Outcome::Failed(image.error);
    const auto file = tamberlo::ReadTuningFile(*image);
    if (!file.file) session.Say(values[0] + " is no tuning file: " + file.error.what);
    session.phone().board().SetTuningFile(*image);
    return {};
}

std::string TuningProblem(const Values& values) {
    return CanBeReadTwice(values[0]) ? TuningImage(values[0]).error : "";
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
    const std::string text = session.phone().Dump(std::span(arguments).first(tag.empty() ? 0 : 1));
    session.Show(text.empty() ? "no line has a tag that begins with '" + tag +
                                        "'; all tags begin with StHal::"
                              : text);
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
