#include "tools/sthal/commands/demo.h"

#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/RecognitionMode.h>
#include <aidl/android/media/soundtrigger/SoundModelType.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "audio/hal/utils/constants/devices.h"
#include "audio/hal/utils/constants/usecases.h"
#include "host/virtual_dsp/board/example_tuning.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/audio/wav.h"
#include "tools/audio/waveform.h"
#include "tools/sthal/commands/demo_audio.h"
#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/findings/verdict.h"
#include "tools/sthal/output/progress.h"
#include "tools/sthal/output/terminal.h"
#include "tools/sthal/phone/capture.h"
#include "tools/sthal/phone/phone.h"

namespace sthal {

namespace {

using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::soundtrigger::AudioCapabilities;
using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::RecognitionMode;
using ::aidl::android::media::soundtrigger::SoundModelType;
using Story = DemoOptions::Story;
namespace hal_utils = ::vendor::quarno::brindlecove::audio::hal::utils;

constexpr int kIoHandle = 13;  // What the framework will open the capture stream on.
constexpr size_t kWaveformColumns = 64;
constexpr std::chrono::milliseconds kLookAgain{5};

// How long after the end of the recording an event may still be on its way.
constexpr std::chrono::seconds kLastEventAfter{2};

// When, in frames of the recording, the DSP crashes and comes back, and when the capture without a
// detection is opened.
constexpr size_t kCrashFrame = audio::kSampleRateHz;
constexpr size_t kBootFrame = 9 * audio::kSampleRateHz / 5;
constexpr size_t kZeroLatencyFrame = audio::kSampleRateHz;

// One run, in the order of its operations. Each of them that returns false has said why.
class Demo {
  public:
    Demo(const DemoOptions& options, DemoAudio audio)
        : options_(options), audio_(std::move(audio)) {}

    DemoStatus Run();

  private:
    bool WriteInputs();
    bool PowerUp();
    bool LoadAndStart();
    void DockThePhone();
    void UndockThePhone();
    void BeginPlayback();
    void RestartDsp();
    bool AwaitEvent();
    bool OpenCapture();
    void ReadCapture();
    bool StopAndUnload();
    DemoStatus Conclude();

    void WaitUntilHeard(size_t frame);
    audio::Sound Reference(size_t* lead) const;
    void ShowDump(const char* when);
    DemoStatus Tell();
    std::string Title() const;
    void Say(Lane lane, const std::string& text) { timeline_.Line(lane, text); }
    bool HasModel() const { return options_.story != Story::kZeroLatency; }
    bool IsAmbient() const { return options_.story == Story::kAmbient; }
    std::string Sought() const { return IsAmbient() ? "music" : "hotword"; }

    const DemoOptions& options_;
    const DemoAudio audio_;
    Terminal terminal_;
    Progress progress_{terminal_};
    Timeline timeline_{[this](std::string_view text) { terminal_.Print(text); }};
    std::unique_ptr<Phone> phone_;
    std::shared_ptr<Playback> playback_;
    std::unique_ptr<Capture> capture_;
    std::optional<int> handle_;
    Findings findings_;
};

std::string OutputPath(const DemoOptions& options, const char* name) {
    return (std::filesystem::path(options.output_folder) / name).string();
}

bool Demo::WriteInputs() {
    std::error_code error;
    std::filesystem::create_directories(options_.output_folder, error);
    if (error) {
        Say(Lane::kTool, "cannot make the folder " + options_.output_folder + ": " +
                                 error.message() + "; choose another one with --out");
        return false;
    }
    std::vector<std::pair<const char*, const audio::Sound*>> files{
            {"microphone.wav", &audio_.recording}};
    if (HasModel()) files.emplace_back("hotword.wav", &audio_.pattern);
    for (const auto& [name, sound] : files) {
        const std::string problem = audio::WriteWav(OutputPath(options_, name), *sound);
        if (!problem.empty()) {
            Say(Lane::kTool, problem);
            return false;
        }
    }
    std::vector<audio::Marker> markers;
    if (audio_.expected) {
        markers.push_back(
                {IsAmbient() ? "the music of the model" : "the hotword", *audio_.expected});
    }
    timeline_.Block(audio::DrawWaveform(audio_.recording.Channel(0), kWaveformColumns, markers));
    for (const std::string& note : audio_.notes) Say(Lane::kTool, note);
    Say(Lane::kTool, "wrote " + OutputPath(options_, "microphone.wav") +
                             " and what the model is "
                             "made of beside it");
    return true;
}

bool Demo::PowerUp() {
    timeline_.Heading(
            "The phone starts",
            "A virtual DSP serves the device nodes that the HAL opens; the audio service "
            "builds the HAL on them. Initialize puts the DSP into a known state: every "
            "'dsp command' line is one command that the DSP received and its answer. Then "
            "the sound card monitor reports the DSP online, and the HAL sends it the "
            "settings of the phone.");
    PhoneOptions phone_options;
    phone_options.speed = options_.speed;
    phone_options.tuning_file = virtual_dsp::ExampleTuningFile();
    phone_options.verbose = options_.verbose;
    phone_options.on_model_piece = [this] { progress_.AddModelPiece(); };
    auto phone = Phone::Boot(phone_options, timeline_);
    if (!phone) {
        Say(Lane::kTool, phone.error);
        return false;
    }
    phone_ = std::move(*phone.value);
    (void)phone_->Initialize();
    phone_->ReportDsp(true);
    return phone_->ReadProperties();
}

bool Demo::LoadAndStart() {
    timeline_.Heading(
            "The framework loads a model and starts recognition",
            "The model goes down to the DSP in pieces of 16 KiB, each with a command that "
            "says where it belongs, then one command has the DSP load it. The DSP refuses "
            "a model that did not arrive byte for byte.");
    virtual_dsp::SoundModel model;
    model.engine = IsAmbient() ? virtual_dsp::Engine::kAmbientMusic : virtual_dsp::Engine::kHotword;
    model.threshold = static_cast<float>(Threshold(options_));
    model.pcm_template = audio_.pattern.samples;
    const std::vector<uint8_t> bytes = virtual_dsp::BuildSoundModel(model);
    progress_.BeginModel(bytes.size());
    handle_ = phone_->Load(IsAmbient() ? SoundModelType::GENERIC : SoundModelType::KEYPHRASE, bytes,
                           IsAmbient() ? "music" : options_.phrase);
    progress_.End();
    if (!handle_) return false;

    RecognitionConfig config;
    config.captureRequested = true;
    config.audioCapabilities = static_cast<int32_t>(AudioCapabilities::ECHO_CANCELLATION);
    if (!IsAmbient()) {
        auto& extra = config.phraseRecognitionExtras.emplace_back();
        extra.recognitionModes = static_cast<int32_t>(RecognitionMode::VOICE_TRIGGER);
        extra.confidenceLevel = 50;
    }
    return phone_->Start(*handle_, kIoHandle, config);
}

void Demo::DockThePhone() {
    timeline_.Heading(
            "The phone is docked, plays music, and its charger has a fan",
            "On the dock the DSP uses the dock's reference source, processing and tuning. "
            "Music on the phone's own loudspeaker needs the echo canceller (eraser, and "
            "the neural one for this client). The fan blows at one microphone, so the two "
            "are swapped.");
    phone_->Dock(true);
    phone_->Play(hal_utils::kPrimaryPlayback, hal_utils::kSpeaker, AudioUsage::MEDIA);
    phone_->FanCharger(true);
}

void Demo::UndockThePhone() {
    timeline_.Heading("The phone leaves the dock", "Everything is put back, in the same order.");
    phone_->FanCharger(false);
    phone_->Play(hal_utils::kPrimaryPlayback, "", AudioUsage::MEDIA);
    phone_->Dock(false);
}

void Demo::BeginPlayback() {
    const std::string what =
            HasModel()
                    ? "The recording is played into the DSP's microphones. The DSP finds the " +
                              Sought() +
                              " by itself and writes a detection record; the HAL's control thread "
                              "wakes up, reads it, moves the client on and calls the framework "
                              "back."
                    : "The recording is played into the DSP's microphones. No model is loaded: "
                      "the HAL makes a client of its own and has the hotword engine deliver "
                      "audio at once.";
    timeline_.Heading(IsAmbient() ? "Music plays nearby" : "Somebody speaks", what);
    playback_ = phone_->PlayRecording(audio_.recording);
    char text[80];
    (void)std::snprintf(text, sizeof(text), "playing %.1f s at %g times real time",
                        audio::Seconds(audio_.recording.frames()), options_.speed);
    Say(Lane::kTool, text);
}

void Demo::RestartDsp() {
    WaitUntilHeard(kCrashFrame);
    Say(Lane::kTool, "the DSP crashes: models, detections and settings are lost");
    phone_->CrashDsp();
    WaitUntilHeard(kBootFrame);
    Say(Lane::kTool, "the DSP is back: the framework has noticed nothing so far");
    phone_->BootDsp();
    if (audio_.expected && playback_->heard_frames() > audio_.expected->begin) {
        findings_.problems.emplace_back(
                "this machine was busy: the hotword had begun when the DSP came back, so nobody "
                "could "
                "hear it whole; try again, or with a lower --speed");
    }
}

void Demo::WaitUntilHeard(size_t frame) {
    while (playback_->heard_frames() < frame && !playback_->IsFinished() && !Interrupted()) {
        progress_.ShowPlayback(*playback_);
        std::this_thread::sleep_for(kLookAgain);
    }
    progress_.End();
}

bool Demo::AwaitEvent() {
    std::optional<std::chrono::steady_clock::time_point> deadline;
    const auto give_up = [&] {
        if (Interrupted()) return true;
        progress_.ShowPlayback(*playback_);
        if (!deadline && playback_->IsFinished()) {
            deadline = std::chrono::steady_clock::now() + kLastEventAfter;
        }
        return deadline && std::chrono::steady_clock::now() >= *deadline;
    };
    const auto event =
            phone_->framework().Wait(std::chrono::steady_clock::time_point::max(), give_up);
    progress_.End();
    if (!event) return false;
    findings_.event_handle = event->handle;
    findings_.callback_latency_ns = event->entered_ns - phone_->latest_record_ns();
    return true;
}

bool Demo::OpenCapture() {
    timeline_.Heading(
            HasModel() ? "The framework opens the capture stream"
                       : "An app opens a capture stream of its own",
            std::string(HasModel()
                                ? "The DSP kept what it heard before and since the detection. The "
                                  "stream gets that as fast as it reads, then live audio at the "
                                  "pace of the microphone."
                                : "The stream gets what the DSP has kept since the recognition "
                                  "was forced, then live audio at the pace of the microphone.") +
                    " Each read adds the length of all audio so far to the time stamp, which runs "
                    "ahead of the clock: the framework's reports are calibrated to that.");
    auto capture = Capture::Open(*phone_, {.io_handle = kIoHandle,
                                           .channels = IsAmbient() ? 1 : options_.channels,
                                           .is_internal_force = !HasModel()});
    if (!capture) {
        Say(Lane::kCapture, capture.error);
        return false;
    }
    capture_ = std::move(*capture.value);
    return true;
}

// What the microphones have heard of the recording so far, with `lead` frames before it where a
// capture may reach back that far.
audio::Sound Demo::Reference(size_t* lead) const {
    const size_t before = audio_.expected && audio_.expected->begin < audio::kSampleRateHz
                                  ? size_t{audio::kSampleRateHz}
                                  : 0;
    *lead = std::min<size_t>(before, playback_->first_frame());
    audio::Sound heard;
    heard.channels = 2;
    heard.samples = phone_->board().microphone().Heard(playback_->first_frame() - *lead,
                                                       audio_.recording.frames() + *lead);
    return heard;
}

void Demo::ReadCapture() {
    std::optional<size_t> wanted;
    if (options_.capture_seconds) {
        wanted = static_cast<size_t>(*options_.capture_seconds * audio::kSampleRateHz);
    }
    while (!Interrupted() && capture_->ReadOnce()) {
        progress_.ShowPlayback(*playback_);
        if (!wanted) {
            // Up to the end of the recording; where it begins, the first bulk tells.
            size_t lead = 0;
            const audio::Sound reference = Reference(&lead);
            const audio::Comparison begin = Compare(reference, capture_->sound(), IsAmbient());
            const size_t end = audio_.recording.frames() + lead;
            wanted = begin.found ? end - std::min(end, begin.first_frame) : end;
        }
        if (capture_->sound().frames() + capture_->bulk_frames() > *wanted) break;
    }
    progress_.End();
    capture_->Close();
}

bool Demo::StopAndUnload() {
    timeline_.Heading("The framework stops and unloads", "The DSP is left as it was found.");
    const bool stopped = phone_->Stop(*handle_);
    return phone_->Unload(*handle_) && stopped;
}

// What the run is about, for the heading of its files.
std::string Demo::Title() const {
    std::string title = "\"" + options_.phrase + "\"";
    switch (options_.story) {
        case Story::kHotword:
            break;
        case Story::kZeroLatency:
            title = "capture without a detection";
            break;
        case Story::kAmbient:
            title = "music";
            break;
        case Story::kRestart:
            title += ", the DSP crashes";
            break;
        case Story::kDock:
            title += " on the dock";
            break;
    }
    return options_.microphone_file ? title + " in " + *options_.microphone_file : title;
}

void Demo::ShowDump(const char* when) {
    if (!options_.dump) return;
    Say(Lane::kTool, std::string("dump ") + when + ":");
    timeline_.Block(phone_->Dump());
}

DemoStatus Demo::Run() {
    if (!options_.files.AreWanted()) return Tell();
    timeline_.record().Enable("sthal demo: " + Title());
    const DemoStatus status = Tell();
    phone_.reset();  // Where the run broke off: the record is not complete before.
    progress_.Show("writing the run's files");
    const std::string problem = WriteRunFiles(timeline_.record(), options_.files);
    progress_.End();
    if (problem.empty()) return status;
    Say(Lane::kTool, problem);
    return status == DemoStatus::kDelivered ? DemoStatus::kFailed : status;
}

DemoStatus Demo::Tell() {
    timeline_.Heading(
            "A recording and a model are made",
            HasModel() ? "The recording is what the phone's two microphones will hear. The model "
                         "holds the sound of the " +
                                 Sought() + ", and the threshold from which on it counts as heard."
                       : "The recording is what the phone's two microphones will hear.");
    if (!WriteInputs()) return DemoStatus::kUsage;
    if (!PowerUp()) return DemoStatus::kFailed;
    ShowDump("after start-up");
    if (HasModel() && !LoadAndStart()) return DemoStatus::kFailed;
    ShowDump("with recognition started");
    if (options_.story == Story::kDock) DockThePhone();
    BeginPlayback();
    if (options_.story == Story::kRestart) RestartDsp();
    if (!HasModel()) WaitUntilHeard(kZeroLatencyFrame);
    const bool has_audio = !HasModel() || AwaitEvent();
    if (has_audio && !Interrupted() && OpenCapture()) {
        ShowDump("while capturing");
        ReadCapture();
    }
    if (options_.story == Story::kDock) UndockThePhone();
    if (handle_ && !StopAndUnload())
        findings_.problems.emplace_back("the framework's last calls failed");
    ShowDump("at the end");
    return Conclude();
}

DemoStatus Demo::Conclude() {
    timeline_.Heading("What came of it", HasModel()
                                                 ? "The event and the audio are held against the "
                                                   "recording."
                                                 : "The audio is held against the recording.");
    if (Interrupted()) {
        Say(Lane::kTool, "interrupted: everything was stopped and taken down");
        return DemoStatus::kInterrupted;
    }
    findings_.wants_event = HasModel();
    findings_.is_ambient = IsAmbient();
    findings_.expected = audio_.expected;
    findings_.handle = handle_;
    findings_.preroll_ms = virtual_dsp::DspOptions{}.preroll_ms;
    if (capture_ != nullptr) {
        const std::string path = OutputPath(options_, "capture.wav");
        const std::string problem = audio::WriteWav(path, capture_->sound());
        Say(Lane::kTool, problem.empty() ? "wrote " + path : problem);
        const audio::Sound reference = Reference(&findings_.lead_frames);
        findings_.comparison = Compare(reference, capture_->sound(), IsAmbient());
        findings_.capture_opened = true;
        if (audio_.expected) {
            findings_.instant_error_ns =
                    capture_->first_position_ns() - playback_->HeardAtNs(audio_.expected->end - 1);
        }
        Say(Lane::kTool, findings_.comparison.ToString());
    }
    std::ranges::move(phone_->BrokenRules(), std::back_inserter(findings_.problems));
    const Verdict verdict = Judge(findings_);
    phone_.reset();
    timeline_.record().SetVerdict(verdict.text);
    timeline_.Block("");
    timeline_.Block(verdict.text);
    return verdict.status;
}

}  // namespace

double Threshold(const DemoOptions& options) {
    constexpr double kHotwordThreshold = 0.7;
    constexpr double kMusicThreshold = 0.9;
    return options.threshold.value_or(options.story == Story::kAmbient ? kMusicThreshold
                                                                       : kHotwordThreshold);
}

DemoStatus RunDemo(const DemoOptions& options) {
    auto audio = MakeDemoAudio(options);
    if (!audio) {
        (void)std::fprintf(stderr, "sthal demo: %s\n", audio.error.c_str());
        return DemoStatus::kUsage;
    }
    return Demo(options, std::move(*audio.value)).Run();
}

}  // namespace sthal
