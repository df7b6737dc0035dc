#include "tools/sthal/phone/phone.h"

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

#include "host/virtual_dsp/nodes/fault_text.h"

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
using soundtrigger::FrameworkMonitor;
using ::vendor::quarno::brindlecove::audio::hal::audio::router::RoutingGraph;
using ::vendor::quarno::brindlecove::audio::hal::utils::dumpsys::DumpsysInfo;
using virtual_dsp::BoottimeNow;

// In a callback, the HAL's lock can be had within this, or the callback holds it.
constexpr std::chrono::milliseconds kLockDeadline{5000};

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

// A record that goes on to the framework.
bool IsDetection(const virtual_dsp::JournalEntry& entry) {
    return entry.source == "detector";
}

// What is started is started anew with the DSP, whether or not its event has come.
bool IsNoteOnly(const FrameworkMonitor::Violation& violation) {
    return violation.rule == FrameworkMonitor::Rule::kSecondEventAfterDspRestart;
}

std::string BrokenRuleText(const FrameworkMonitor::Violation& violation) {
    return "the HAL broke a rule of the framework, which would restart it: " + violation.text;
}

}  // namespace

audio::Result<std::unique_ptr<Phone>> Phone::Boot(const PhoneOptions& options, Timeline& timeline) {
    using Booted = audio::Result<std::unique_ptr<Phone>>;
    std::unique_ptr<Phone> phone(new Phone(options, timeline));
    virtual_dsp::BoardOptions board_options;
    board_options.microphone.speed = options.speed;
    board_options.microphone.noise_seed = options.noise_seed;
    board_options.microphone.idle = virtual_dsp::MicrophoneOptions::Idle::kNoise;
    board_options.microphone.boottime_ns = [clock = phone->microphone_clock_] {
        return clock->Now();
    };
    std::string error;
    phone->board_ = virtual_dsp::Board::Create(board_options, &error);
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
    phone->board_->faults().SetHitListener(
            [self = phone.get()](const virtual_dsp::FaultRule& rule, uint64_t fired) {
                self->ShowFault(rule, fired);
            });
    phone->BuildHal();
    return Booted::Of(std::move(phone));
}

void Phone::BuildHal() {
    hal_ = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    hal_->SetSoundCardState(&sound_card_);
    monitor_ = std::make_unique<FrameworkMonitor>(
            std::make_unique<soundtrigger::HalCalls>(hal_.get()), kLockDeadline,
            [this](const FrameworkMonitor::Violation& violation) { ShowBrokenRule(violation); });
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
          record().Add(RecordedEvent{.handle = event.handle,
                                     .entered_ns = event.entered_ns,
                                     .returned_ns = BoottimeNow(),
                                     .text = event.ToString()});
      })),
      shown_from_(options.verbose ? android::base::VERBOSE : android::base::WARNING) {}

Phone::~Phone() {
    if (hal_ != nullptr && record().is_enabled()) (void)Dump();
    hal_.reset();
    if (board_ != nullptr) board_->dsp().journal().SetListener({});
    board_.reset();
    android::base::SetLogger(android::base::StderrLogger);
}

void Phone::SetLogLevel(android::base::LogSeverity severity) {
    shown_from_ = severity;
    (void)android::base::SetMinimumLogSeverity(std::min(severity, android::base::INFO));
}

void Phone::ShowLogLine(android::base::LogSeverity severity, const char* tag, const char* text) {
    const std::string_view line(text);
    if (options_.on_log) options_.on_log(line);
    record().AddLogLine(severity, tag, line);
    if (severity < shown_from_ && !line.starts_with("ChangeStateTo: ")) return;
    std::string shown;
    if (severity == android::base::WARNING) shown = "warning: ";
    if (severity > android::base::WARNING) shown = "error: ";
    shown += line;
    if (shown_from_ < android::base::INFO) shown += std::string("  [") + tag + "]";
    timeline_.Line(Lane::kHal, shown);
}

void Phone::ShowJournal(const virtual_dsp::JournalEntry& entry) {
    record().Add(entry);
    if (IsDetection(entry)) {
        latest_record_ns_ = entry.boottime_ns;
        RecordFill();
    }
    if (entry.source == "model-data" && options_.on_model_piece) options_.on_model_piece();
    if (IsModelPiece(entry) && shown_from_ >= android::base::INFO) return;
    const bool names_itself = entry.source == "command";
    timeline_.LineAt(entry.boottime_ns, Lane::kDsp,
                     names_itself ? entry.text : entry.source + ": " + entry.text);
}

void Phone::ShowFault(const virtual_dsp::FaultRule& rule, uint64_t fired) {
    // A rule may hit every poll of a node.
    constexpr uint64_t kShown = 20;
    if (fired > kShown) return;
    std::string text = virtual_dsp::PrintFault(rule) + ": hit a call";
    if (fired > 1) text += ", " + std::to_string(fired) + " times by now";
    if (fired == kShown) text += kNextHitsNotTold;
    board_->dsp().journal().Add("fault", text);
}

void Phone::ShowBrokenRule(const FrameworkMonitor::Violation& violation) {
    if (IsNoteOnly(violation)) {
        timeline_.Line(Lane::kEvent, "note: " + violation.text);
        record().AddNote(violation.text);
    } else {
        timeline_.Line(Lane::kEvent, BrokenRuleText(violation));
        record().AddProblem(BrokenRuleText(violation));
    }
}

std::vector<std::string> Phone::BrokenRules() const {
    std::vector<std::string> broken = broken_earlier_;
    for (const auto& violation : monitor_->violations()) {
        if (!IsNoteOnly(violation)) broken.push_back(BrokenRuleText(violation));
    }
    return broken;
}

bool Phone::Report(const std::string& call, int result, int64_t started_ns, RecordedCall about) {
    last_result_ = result;
    about.begin_ns = started_ns;
    about.end_ns = BoottimeNow();
    about.result = result;
    const size_t name_end = std::min(call.find(' '), call.size());
    about.name = call.substr(0, name_end);
    about.detail = call.substr(std::min(name_end + 1, call.size()));
    timeline_.Line(Lane::kFramework, call + " -> " + ResultText(result) + ", took " +
                                             DurationText(about.end_ns - started_ns));
    record().Add(std::move(about));
    return result == 0;
}

RecordedCall Phone::ServiceCall(const char* name, std::string detail) const {
    return {.caller = RecordedCall::Caller::kAudioService,
            .name = name,
            .detail = std::move(detail)};
}

BufferFill Phone::RecordFill() {
    if (!record().is_enabled()) return {};
    using virtual_dsp::PcmPort;
    // The hotword port has two channels of 16 bits, the other one mu-law.
    constexpr size_t kHotwordFrameBytes = 4;
    const virtual_dsp::Dsp& dsp = board_->dsp();
    const BufferFill fill{
            .ns = BoottimeNow(),
            .hotword_frames = dsp.PcmBytesReady(PcmPort::kHotword) / kHotwordFrameBytes,
            .ambient_frames = dsp.PcmBytesReady(PcmPort::kAmbient)};
    record().Add(fill);
    return fill;
}

// --- the audio service ---

bool Phone::Initialize() {
    timeline_.Line(Lane::kTool, "the audio service initialises the HAL");
    bool online = false;
    {
        const CallSpan span(record(), ServiceCall("Initialize"));
        online = hal_->Initialize();
    }
    // The sound card comes up a little later on a phone, too; a report before the control thread
    // has made its pipe would be logged as an error of no consequence.
    std::this_thread::sleep_for(kSoundCardDelay);
    timeline_.Line(Lane::kTool, online ? "the HAL is up, the sound card is online"
                                       : "the HAL is up, the sound card is not online yet");
    return online;
}

void Phone::ReportDsp(bool online) {
    timeline_.Line(Lane::kTool,
                   online ? "the sound card monitor reports: OnSoundCardStateChanged(true)"
                          : "the sound card monitor reports: OnSoundCardStateChanged(false)");
    const CallSpan span(record(),
                        ServiceCall("OnSoundCardStateChanged", online ? "online" : "offline"));
    if (online) monitor_->BeginDspRestart();
    sound_card_.Report(online);
    if (online) monitor_->EndDspRestart();
}

void Phone::RestartService() {
    timeline_.Line(Lane::kTool, "the audio service ends, and with it the HAL and all models");
    broken_earlier_ = BrokenRules();
    sound_card_.UnregisterListener(hal_.get());
    hal_.reset();
    BuildHal();
    if (Initialize()) ReportDsp(true);
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
                   connected ? "the phone is put on its dock: OnDockChargerConnected(true)"
                             : "the phone is taken off its dock: OnDockChargerConnected(false)");
    {
        const CallSpan span(record(),
                            ServiceCall("OnDockChargerConnected", connected ? "true" : "false"));
        hal_->OnDockChargerConnected(connected);
    }
    std::string names;
    for (const std::string& name : board_->wake_locks().Held()) names += " " + name;
    timeline_.Line(Lane::kTool, "wake locks held:" + (names.empty() ? " none" : names));
}

void Phone::Play(std::string_view usecase, std::string_view device, AudioUsage usage) {
    RoutingGraph graph;
    if (device.empty()) {
        Route(graph);
        PlayTracks(usecase, {});
    } else {
        graph.edges.push_back({std::string(usecase), std::string(device)});
        Route(graph);
        PlayTracks(usecase, {&usage, 1});
    }
}

void Phone::Route(const RoutingGraph& graph) {
    std::string text;
    for (const auto& edge : graph.edges) {
        text += (text.empty() ? "" : ", ") + edge.source + " to " + edge.sink;
    }
    timeline_.Line(Lane::kTool,
                   "routed: " + (text.empty() ? "nothing" : text) + ": OnRoutingGraphChanged");
    const CallSpan span(record(), ServiceCall("OnRoutingGraphChanged", text));
    hal_->OnRoutingGraphChanged(graph);
}

void Phone::PlayTracks(std::string_view usecase, std::span<const AudioUsage> usages) {
    std::string text;
    SourceMetadata metadata;
    for (const AudioUsage usage : usages) {
        text += (text.empty() ? " plays " : ", ") + toString(usage);
        PlaybackTrackMetadata track;
        track.usage = usage;
        metadata.tracks.push_back(track);
    }
    timeline_.Line(Lane::kTool, std::string(usecase) + (text.empty() ? " ends" : text) +
                                        ": OnSourceMetadataChanged");
    const CallSpan span(record(),
                        ServiceCall("OnSourceMetadataChanged", std::string(usecase) + text));
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
    bool taken = false;
    {
        const CallSpan span(record(),
                            ServiceCall("SetParameter", present ? "fan: true" : "fan: false"));
        taken = hal_->SetParameter(parameter);
    }
    timeline_.Line(Lane::kTool, std::string("SetParameter ") + kFanChargerParameter + " -> " +
                                        (taken ? "taken" : "refused"));
}

std::string Phone::Dump(std::span<const std::string_view> arguments) {
    const android::base::unique_fd file = MemoryFile("dump", {});
    if (!file.ok()) return "(no memory for the dump)\n";
    DumpsysInfo info(file.get());
    info.args.assign(arguments.begin(), arguments.end());
    {
        const CallSpan span(record(), ServiceCall("Dump"));
        hal_->Dump(info);
    }
    std::string text = ReadAll(file.get());
    record().AddDump(text);
    return text;
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
        result = monitor_->LoadPhraseSoundModel(phrase_model, framework_, &handle);
    } else {
        call = "loadSoundModel \"" + name + "\", ";
        result = monitor_->LoadSoundModel(sound_model, framework_, &handle);
    }
    call += size;
    if (result != 0) handle = 0;
    if (result == 0) call += ", model " + std::to_string(handle);
    const bool loaded = Report(call, result, started_ns,
                               {.kind = RecordedCall::Kind::kLoad, .name = {}, .handle = handle});
    record().AddModel(handle, name, model);
    if (!loaded) return std::nullopt;
    return handle;
}

bool Phone::Start(int handle, int io_handle, const RecognitionConfig& config) {
    const int64_t started_ns = BoottimeNow();
    const int result = monitor_->StartRecognition(handle, io_handle, config);
    return Report("startRecognition model " + std::to_string(handle) + ", io handle " +
                          std::to_string(io_handle),
                  result, started_ns,
                  {.kind = RecordedCall::Kind::kStart,
                   .name = {},
                   .handle = handle,
                   .io_handle = io_handle});
}

bool Phone::Stop(int handle) {
    const int64_t started_ns = BoottimeNow();
    const int result = monitor_->StopRecognition(handle);
    return Report("stopRecognition model " + std::to_string(handle), result, started_ns,
                  {.kind = RecordedCall::Kind::kStop, .name = {}, .handle = handle});
}

bool Phone::Unload(int handle) {
    const int64_t started_ns = BoottimeNow();
    const int result = monitor_->UnloadSoundModel(handle);
    return Report("unloadSoundModel model " + std::to_string(handle), result, started_ns,
                  {.kind = RecordedCall::Kind::kUnload, .name = {}, .handle = handle});
}

bool Phone::ForceRecognition(int handle) {
    const int64_t started_ns = BoottimeNow();
    const int result = monitor_->ForceRecognitionEvent(handle);
    return Report("forceRecognitionEvent model " + std::to_string(handle), result, started_ns,
                  {.name = {}, .handle = handle});
}

std::shared_ptr<Playback> Phone::PlayRecording(const audio::Sound& recording) {
    auto playback = Playback::Begin(board_->microphone(), microphone_clock_, recording);
    record().AddPlayback(recording, playback);
    return playback;
}

}  // namespace sthal
