#include "tools/sthal/phone.h"

#include <aidl/android/hardware/audio/common/SourceMetadata.h>
#include <aidl/android/media/audio/common/Boolean.h>
#include <android-base/unique_fd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

namespace sthal {

namespace {

using ::aidl::android::hardware::audio::common::PlaybackTrackMetadata;
using ::aidl::android::hardware::audio::common::SourceMetadata;
using ::aidl::android::hardware::audio::core::VendorParameter;
using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::audio::common::Boolean;
using ::aidl::android::media::soundtrigger::PhraseSoundModel;
using ::aidl::android::media::soundtrigger::Properties;
using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::SoundModel;
using ::aidl::android::media::soundtrigger::SoundModelType;
using ::vendor::quarno::brindlecove::audio::hal::audio::router::RoutingGraph;
using ::vendor::quarno::brindlecove::audio::hal::utils::dumpsys::DumpsysInfo;
using virtual_dsp::BoottimeNow;

constexpr std::chrono::milliseconds kSoundCardDelay{50};

constexpr char kFanChargerParameter[] = "vendor.vexor.st.wireless.charger.with.fan";

// A file that lives in memory only, with the given contents and its offset at 0.
android::base::unique_fd MemoryFile(const char* name, std::span<const uint8_t> contents) {
    android::base::unique_fd fd(memfd_create(name, MFD_CLOEXEC));
    while (fd.ok() && !contents.empty()) {
        const ssize_t written = write(fd.get(), contents.data(), contents.size());
        if (written <= 0) return {};
        contents = contents.subspan(static_cast<size_t>(written));
    }
    if (fd.ok() && lseek(fd.get(), 0, SEEK_SET) != 0) return {};
    return fd;
}

std::string ReadAll(int fd) {
    std::string text;
    char piece[4096];
    (void)lseek(fd, 0, SEEK_SET);
    for (ssize_t count = 0; (count = read(fd, piece, sizeof(piece))) > 0;) {
        text.append(piece, static_cast<size_t>(count));
    }
    return text;
}

std::string ResultText(int result) {
    if (result == 0) return "0";
    std::string text = std::to_string(result);
    if (result < 0) text += std::string(" (") + strerrorname_np(-result) + ")";
    return text;
}

// A record that goes on to the framework, or a piece of a model that nobody wants to see 1000 of.
bool IsDetection(const virtual_dsp::JournalEntry& entry) {
    return entry.source == "detector";
}

bool IsDetail(const virtual_dsp::JournalEntry& entry) {
    if (entry.source == "model-data") return true;
    const uint32_t id = entry.command_id.value_or(0);
    namespace wire = virtual_dsp::wire;
    return entry.result == 0 && (id == wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL ||
                                 id == wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL ||
                                 id == wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_WRITE_MODEL);
}

}  // namespace

audio::Result<std::unique_ptr<Phone>> Phone::Boot(const PhoneOptions& options, Timeline& timeline) {
    using Booted = audio::Result<std::unique_ptr<Phone>>;
    std::unique_ptr<Phone> phone(new Phone(options, timeline));
    virtual_dsp::BoardOptions board_options;
    board_options.microphone.speed = options.speed;
    board_options.microphone.idle = virtual_dsp::MicrophoneOptions::Idle::kNoise;
    board_options.microphone.boottime_ns = [clock = phone->microphone_clock_] {
        return clock->Now();
    };
    std::string error;
    phone->board_ = virtual_dsp::Board::Create(std::move(board_options), &error);
    if (phone->board_ == nullptr) return Booted::Error(error);
    if (options.tuning_file) phone->board_->SetTuningFile(*options.tuning_file);
    phone->board_->dsp().journal().SetListener(
            [self = phone.get()](const virtual_dsp::JournalEntry& entry) {
                self->ShowJournal(entry);
            });
    android::base::SetLogger(
            [self = phone.get()](android::base::LogId, auto severity, const char* tag, const char*,
                                 unsigned int,
                                 const char* text) { self->ShowLogLine(severity, tag, text); });
    phone->hal_ = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    phone->hal_->SetSoundCardState(&phone->sound_card_);
    return Booted::Of(std::move(phone));
}

Phone::Phone(const PhoneOptions& options, Timeline& timeline)
    : options_(options),
      timeline_(timeline),
      microphone_clock_(std::make_shared<MicrophoneClock>()),
      framework_(ndk::SharedRefBase::make<FrameworkCallback>([this](const FrameworkEvent& event) {
          std::string text = event.ToString();
          const int64_t record_ns = latest_record_ns_;
          if (record_ns != 0) {
              text += "; " + DurationText(event.entered_ns - record_ns) + " after the record";
          }
          timeline_.LineAt(event.entered_ns, Lane::kEvent, text);
      })) {}

Phone::~Phone() {
    hal_.reset();
    if (board_ != nullptr) board_->dsp().journal().SetListener({});
    board_.reset();
    android::base::SetLogger(android::base::StderrLogger);
}

void Phone::ShowLogLine(android::base::LogSeverity severity, const char* tag, const char* text) {
    const std::string_view line(text);
    const bool is_problem = severity >= android::base::WARNING;
    if (!is_problem && !options_.verbose && !line.starts_with("ChangeStateTo: ")) return;
    std::string shown;
    if (severity == android::base::WARNING) shown = "warning: ";
    if (severity > android::base::WARNING) shown = "error: ";
    shown += line;
    if (options_.verbose) shown += std::string("  [") + tag + "]";
    timeline_.Line(Lane::kHal, shown);
}

void Phone::ShowJournal(const virtual_dsp::JournalEntry& entry) {
    if (IsDetection(entry)) latest_record_ns_ = entry.boottime_ns;
    if (IsDetail(entry) && !options_.verbose) return;
    const bool names_itself = entry.source == "command";
    timeline_.LineAt(entry.boottime_ns, Lane::kDsp,
                     names_itself ? entry.text : entry.source + ": " + entry.text);
}

bool Phone::Report(const std::string& call, int result, int64_t started_ns) {
    timeline_.Line(Lane::kFramework, call + " -> " + ResultText(result) + ", took " +
                                             DurationText(BoottimeNow() - started_ns));
    return result == 0;
}

// --- the audio service ---

bool Phone::Initialize() {
    timeline_.Line(Lane::kTool, "the audio service initialises the HAL");
    const bool online = hal_->Initialize();
    // The sound card comes up a little later on a phone, too; a report before the control thread
    // has made its pipe would be logged as an error of no consequence.
    std::this_thread::sleep_for(kSoundCardDelay);
    timeline_.Line(Lane::kTool, online ? "the HAL is up, the sound card is online"
                                       : "the HAL is up, the sound card is not online yet");
    return online;
}

void Phone::ReportDsp(bool online) {
    timeline_.Line(Lane::kTool, online ? "the sound card monitor reports: online"
                                       : "the sound card monitor reports: offline");
    sound_card_.Report(online);
}

void Phone::CrashDsp() {
    board_->dsp().Crash();
    ReportDsp(false);
}

void Phone::BootDsp() {
    board_->dsp().Boot();
    ReportDsp(true);
}

void Phone::Dock(bool connected) {
    timeline_.Line(Lane::kTool,
                   connected ? "the phone is put on its dock" : "the phone is taken off its dock");
    hal_->OnDockChargerConnected(connected);
    std::string names;
    for (const std::string& name : board_->wake_locks().Held()) names += " " + name;
    timeline_.Line(Lane::kTool, "wake locks held:" + (names.empty() ? " none" : names));
}

void Phone::Play(std::string_view usecase, std::string_view device, AudioUsage usage) {
    RoutingGraph graph;
    SourceMetadata metadata;
    if (device.empty()) {
        timeline_.Line(Lane::kTool, std::string(usecase) + " ends");
    } else {
        timeline_.Line(Lane::kTool, std::string(usecase) + " plays " + toString(usage) + " on " +
                                            std::string(device));
        graph.edges.push_back({std::string(usecase), std::string(device)});
        PlaybackTrackMetadata track;
        track.usage = usage;
        metadata.tracks.push_back(track);
    }
    hal_->OnRoutingGraphChanged(graph);
    hal_->OnSourceMetadataChanged(usecase, metadata);
}

void Phone::FanCharger(bool present) {
    timeline_.Line(Lane::kTool, present ? "the charger has a fan: the microphones are swapped"
                                        : "the fan has gone");
    VendorParameter parameter;
    parameter.id = kFanChargerParameter;
    Boolean value;
    value.value = present;
    (void)parameter.ext.setParcelable(value);
    const bool taken = hal_->SetParameter(parameter);
    timeline_.Line(Lane::kTool, std::string("SetParameter ") + kFanChargerParameter + " -> " +
                                        (taken ? "taken" : "refused"));
}

std::string Phone::Dump(std::span<const std::string_view> arguments) {
    const android::base::unique_fd file = MemoryFile("dump", {});
    if (!file.ok()) return "(no memory for the dump)\n";
    DumpsysInfo info(file.get());
    info.args.assign(arguments.begin(), arguments.end());
    hal_->Dump(info);
    return ReadAll(file.get());
}

// --- the framework ---

bool Phone::ReadProperties() {
    const int64_t started_ns = BoottimeNow();
    Properties properties;
    const bool read = Report("getProperties", hal_->GetProperties(&properties), started_ns);
    if (read) timeline_.Block(properties.toString());
    return read;
}

std::optional<int> Phone::Load(SoundModelType type, std::span<const uint8_t> model,
                               const std::string& name) {
    SoundModel sound_model;
    sound_model.type = type;
    sound_model.uuid = "6a2f1c9e-0b57-4e1d-9a44-5d3e8f7c0011";
    sound_model.vendorUuid = "vendor-" + name;
    sound_model.data.set(MemoryFile("sound-model", model).release());
    sound_model.dataSize = static_cast<int32_t>(model.size());
    const std::string size = std::to_string(model.size()) + " bytes";
    const int64_t started_ns = BoottimeNow();
    int handle = 0;
    int result = 0;
    std::string call;
    if (type == SoundModelType::KEYPHRASE) {
        PhraseSoundModel phrase_model;
        phrase_model.common = std::move(sound_model);
        phrase_model.phrases.emplace_back().text = name;
        call = "loadPhraseSoundModel \"" + name + "\", ";
        result = hal_->LoadPhraseSoundModel(phrase_model, framework_, &handle);
    } else {
        call = "loadSoundModel \"" + name + "\", ";
        result = hal_->LoadSoundModel(sound_model, framework_, &handle);
    }
    call += size;
    if (result == 0) call += ", model " + std::to_string(handle);
    if (!Report(call, result, started_ns)) return std::nullopt;
    return handle;
}

bool Phone::Start(int handle, int io_handle, const RecognitionConfig& config) {
    const int64_t started_ns = BoottimeNow();
    const int result = hal_->StartRecognition(handle, /*device_handle=*/0, io_handle, config);
    return Report("startRecognition model " + std::to_string(handle) + ", io handle " +
                          std::to_string(io_handle),
                  result, started_ns);
}

bool Phone::Stop(int handle) {
    const int64_t started_ns = BoottimeNow();
    const int result = hal_->StopRecognition(handle);
    return Report("stopRecognition model " + std::to_string(handle), result, started_ns);
}

bool Phone::Unload(int handle) {
    const int64_t started_ns = BoottimeNow();
    const int result = hal_->UnloadSoundModel(handle);
    return Report("unloadSoundModel model " + std::to_string(handle), result, started_ns);
}

std::shared_ptr<Playback> Phone::PlayRecording(const audio::Sound& recording) {
    return Playback::Begin(board_->microphone(), microphone_clock_, recording);
}

}  // namespace sthal
