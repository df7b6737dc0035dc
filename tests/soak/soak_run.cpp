#include "tests/soak/soak_run.h"

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/audio/common/Boolean.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>

#include "host/framework_monitor/framework_monitor.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/soak/oracle.h"
#include "tools/hal_calls.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::framework::FrameworkMonitor;
using ::framework::HalCalls;

/** What no caller of the HAL can see. */
class SoundTriggerHalPeer {
  public:
    // Runs `is_drained` beside nothing that the HAL does under its lock; false, too, while an event
    // is on its way.
    template <typename IsDrained>
    static bool IsIdle(SoundTriggerHal& hal, const IsDrained& is_drained) {
        std::lock_guard lock(hal.lock_);
        return is_drained() && !hal.delivery_;
    }

    static std::vector<ClientView> Clients(SoundTriggerHal& hal) {
        std::lock_guard lock(hal.lock_);
        std::vector<ClientView> views;
        for (const auto& [handle, client] : hal.clients_) {
            views.push_back({handle, client->io_handle_, static_cast<int>(client->engine_type_),
                             client->is_loaded_, client->is_started_, client->is_aec_enabled_,
                             client->is_internal_force_active_, client->is_internal_client_,
                             static_cast<int>(client->state())});
        }
        return views;
    }
};

namespace {

using Kind = Step::Kind;
using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::soundtrigger::PhraseRecognitionEvent;
using ::aidl::android::media::soundtrigger::RecognitionEvent;
using ::aidl::android::media::soundtrigger::SoundModelType;

constexpr std::array<const char*, 4> kUsecases = {"primary-playback", "deep-buffer-playback",
                                                  "compress-offload-playback", "haptic-playback"};
constexpr std::chrono::seconds kDrainDeadline{20};
constexpr std::chrono::microseconds kDrainPoll{20};
constexpr unsigned kReadBytes = 2048;

class EventCollector final
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    ::ndk::ScopedAStatus modelUnloaded(int32_t) override { return ::ndk::ScopedAStatus::ok(); }
    ::ndk::ScopedAStatus phraseRecognitionCallback(int32_t handle,
                                                   const PhraseRecognitionEvent& event) override {
        const auto& extras = event.phraseExtras;
        return Keep({handle, true, event.common.captureAvailable,
                     extras.empty() ? -1 : extras.front().id, Text(event.common.data)});
    }
    ::ndk::ScopedAStatus recognitionCallback(int32_t handle,
                                             const RecognitionEvent& event) override {
        return Keep({handle, false, event.captureAvailable, -1, Text(event.data)});
    }

    std::vector<EventView> Take() {
        std::lock_guard lock(lock_);
        return std::exchange(events_, {});
    }

  private:
    static std::string Text(const std::vector<uint8_t>& data) { return {data.begin(), data.end()}; }
    ::ndk::ScopedAStatus Keep(EventView event) {
        std::lock_guard lock(lock_);
        events_.push_back(std::move(event));
        return ::ndk::ScopedAStatus::ok();
    }

    std::mutex lock_;
    std::vector<EventView> events_;
};

std::array<std::array<uint32_t, kStepModels>, 2> ModelCrcs(const SoakTarget& target) {
    std::array<std::array<uint32_t, kStepModels>, 2> crcs;
    for (size_t type = 0; type < crcs.size(); ++type) {
        for (size_t number = 0; number < crcs[type].size(); ++number) {
            crcs[type][number] = ::virtual_dsp::Crc32(
                    target.Model(static_cast<int>(type) + 1, static_cast<int>(number)));
        }
    }
    return crcs;
}

class SoakRun {
  public:
    SoakRun(const TargetFactory& make_target, SoakCounts* counts)
        : counts_(counts), target_(make_target()), oracle_(ModelCrcs(*target_)) {
        oracle_.RestartHal();
        BuildHal();
    }

    // What the HAL and the oracle do not agree about; empty when they do.
    std::string Take(const Step& step);

  private:
    void BuildHal();
    void RestartHal();
    std::optional<int> Apply(const Step& step);
    int Load(const Step& step);
    int Start(const Step& step);
    int Read(const Step& step);
    void MicSwap(bool is_on);
    void Route(int usecases);
    void Metadata(int usecase, int tracks);
    void Online(bool is_online);
    void Recover();

    bool Drain();
    std::string Compare(std::optional<int> expected, std::optional<int> result);
    std::string CompareEvents();
    std::string CompareDsp();
    std::string CheckContract();

    SoakCounts* const counts_;
    const std::unique_ptr<SoakTarget> target_;
    Oracle oracle_;
    const std::shared_ptr<EventCollector> events_ = ::ndk::SharedRefBase::make<EventCollector>();
    std::unique_ptr<FrameworkMonitor> monitor_;
    std::unique_ptr<SoundTriggerHal> hal_;  // After the monitor: its models' callbacks are that's.
    size_t violations_seen_ = 0;
};

void SoakRun::BuildHal() {
    hal_ = target_->BuildHal();
    monitor_ = std::make_unique<FrameworkMonitor>(std::make_unique<HalCalls>(hal_.get()));
    violations_seen_ = 0;
    (void)hal_->Initialize();
}

void SoakRun::RestartHal() {
    hal_.reset();
    BuildHal();
    Online(target_->View().up);
}

std::string SoakRun::Take(const Step& step) {
    const std::optional<int> expected = oracle_.Apply(step);
    const std::optional<int> result = Apply(step);
    ++counts_->steps;
    if (oracle_.has_read() && !Drain()) return "a detection is not taken from the DSP";
    for (const std::string& difference : {Compare(expected, result), CompareEvents(), CompareDsp(),
                                          CheckContract(), target_->Complaint()}) {
        if (!difference.empty()) return difference;
    }
    return "";
}

std::optional<int> SoakRun::Apply(const Step& step) {
    switch (step.kind) {
        case Kind::kLoad:
            return Load(step);
        case Kind::kUnload:
            return monitor_->UnloadSoundModel(step.a);
        case Kind::kStart:
            return Start(step);
        case Kind::kStop:
            return monitor_->StopRecognition(step.a);
        case Kind::kForce:
            return monitor_->ForceRecognitionEvent(step.a);
        case Kind::kProperties: {
            SoundTriggerHal::Properties properties;
            return hal_->GetProperties(&properties);
        }
        case Kind::kInternalForce:
            return hal_->InternalForceRecognition();
        case Kind::kStopInternalForce:
            return hal_->StopInternalForceRecognition();
        case Kind::kStartBuffering:
            return hal_->StartBufferingByIoHandle(step.a, step.b != 0);
        case Kind::kRead:
            return Read(step);
        case Kind::kDock:
            hal_->OnDockChargerConnected(step.a != 0);
            break;
        case Kind::kMicSwap:
            MicSwap(step.a != 0);
            break;
        case Kind::kRoute:
            Route(step.a);
            break;
        case Kind::kMetadata:
            Metadata(step.a, step.b);
            break;
        case Kind::kOnline:
            Online(step.a != 0);
            break;
        case Kind::kDetect:
            target_->Detect(step.a);
            break;
        case Kind::kCrash:
            target_->Crash();
            if (step.a != 0) Online(false);
            break;
        case Kind::kRecover:
            Recover();
            break;
        case Kind::kFault:
            target_->Fail({static_cast<DspOp>(step.a), step.b}, step.c);
            break;
        case Kind::kReadFault:
            target_->FailNextRead(step.a);
            break;
        case Kind::kRestartHal:
            RestartHal();
            break;
    }
    return std::nullopt;
}

void SoakRun::MicSwap(bool is_on) {
    SoundTriggerHal::VendorParameter parameter;
    parameter.id = "vendor.vexor.st.wireless.charger.with.fan";
    ::aidl::android::media::audio::common::Boolean value;
    value.value = is_on;
    (void)parameter.ext.setParcelable(value);
    (void)hal_->SetParameter(parameter);
}

int SoakRun::Load(const Step& step) {
    constexpr SoundModelType kTypes[] = {SoundModelType::KEYPHRASE, SoundModelType::GENERIC,
                                         SoundModelType::INVALID};
    const std::vector<uint8_t> bytes = target_->Model(std::min(step.a, 1) + 1, step.b);
    FrameworkMonitor::SoundModel model;
    model.type = kTypes[step.a];
    model.vendorUuid = "model " + std::to_string(step.b);
    model.dataSize = step.c == 1 ? 0 : static_cast<int32_t>(bytes.size());
    if (step.c != 2) {
        model.data.set(memfd_create("model", MFD_CLOEXEC));
        (void)!pwrite(model.data.get(), bytes.data(), bytes.size(), 0);
    }
    int handle = -1;
    const int result = monitor_->LoadSoundModel(model, events_, &handle);
    return result == 0 ? handle : result;
}

int SoakRun::Start(const Step& step) {
    const StartConfiguration& wanted = kConfigurations[static_cast<size_t>(step.c)];
    FrameworkMonitor::RecognitionConfig config;
    config.captureRequested = wanted.is_capture_requested;
    config.audioCapabilities = wanted.audio_capabilities;
    if (wanted.extra >= 0) config.phraseRecognitionExtras.emplace_back().id = wanted.extra;
    return monitor_->StartRecognition(step.a, step.b, config);
}

// 0 for the audio that there should be, silence included.
int SoakRun::Read(const Step& step) {
    const bool is_silent = step.b != 0 || !target_->View().up;
    target_->SetAudioFault(step.b != 0);
    std::array<char, kReadBytes> audio;
    audio.fill(2);
    const int result = hal_->ReadBuffer(step.a, audio.data(), audio.size(), 1);
    if (result < 0) return result;
    (void)hal_->ReadTimestamp(step.a);
    const char wanted = is_silent ? 0 : 1;
    const bool is_right = result == static_cast<int>(kReadBytes) &&
                          std::ranges::all_of(audio, [&](char byte) { return byte == wanted; });
    return is_right ? 0 : result + 1;
}

void SoakRun::Route(int usecases) {
    SoundTriggerHal::RoutingGraph graph;
    graph.edges.push_back({"deep-buffer-playback", "headset"});
    for (size_t k = 0; k < kUsecases.size(); ++k) {
        if ((usecases >> k & 1) != 0) graph.edges.push_back({kUsecases[k], "speaker"});
    }
    hal_->OnRoutingGraphChanged(graph);
}

void SoakRun::Metadata(int usecase, int tracks) {
    SoundTriggerHal::SourceMetadata metadata;
    metadata.tracks.resize(static_cast<size_t>(tracks) + 1);
    for (auto& track : metadata.tracks) track.usage = AudioUsage::GAME;
    metadata.tracks.back().usage = AudioUsage::ASSISTANCE_SONIFICATION;
    hal_->OnSourceMetadataChanged(kUsecases[static_cast<size_t>(usecase)], metadata);
}

void SoakRun::Online(bool is_online) {
    if (is_online) monitor_->BeginDspRestart();
    hal_->OnSoundCardStateChanged(is_online);
    if (is_online) monitor_->EndDspRestart();
}

void SoakRun::Recover() {
    if (!target_->View().up) Online(false);
    target_->Boot();
    Online(true);
}

// Waits until the control thread has taken all records and delivered what came of them.
bool SoakRun::Drain() {
    const auto deadline = std::chrono::steady_clock::now() + kDrainDeadline;
    while (!SoundTriggerHalPeer::IsIdle(*hal_, [this] { return !target_->HasRecord(); })) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        // No yield: on a busy machine that gives away much more than the control thread needs.
        std::this_thread::sleep_for(kDrainPoll);
    }
    return true;
}

// --- the comparison ---

std::string SoakRun::Compare(std::optional<int> expected, std::optional<int> result) {
    if (result != expected) {
        return "returned " + std::to_string(result.value_or(0)) + ", expected " +
               std::to_string(expected.value_or(0));
    }
    const auto clients = SoundTriggerHalPeer::Clients(*hal_);
    if (clients != oracle_.clients()) {
        return "clients are: " + ToText(clients) + "\n  expected: " + ToText(oracle_.clients());
    }
    for (int io_handle = 0; io_handle < 4; ++io_handle) {
        const int handle = hal_->GetModelHandle(io_handle);
        if (handle == oracle_.ModelHandleOf(io_handle)) continue;
        return "io handle " + std::to_string(io_handle) + " belongs to " + std::to_string(handle) +
               ", expected " + std::to_string(oracle_.ModelHandleOf(io_handle));
    }
    return "";
}

std::string SoakRun::CompareEvents() {
    std::vector<EventView> expected = oracle_.TakeEvents();
    const std::vector<EventView> events = events_->Take();
    counts_->events += events.size();
    if (!target_->has_plain_payloads() && events.size() == expected.size()) {
        for (size_t k = 0; k < events.size(); ++k) expected[k].payload = events[k].payload;
    }
    if (events == expected) return "";
    return "events are: " + ToText(events) + "\n  expected: " + ToText(expected);
}

std::string SoakRun::CompareDsp() {
    const DspView view = target_->View();
    if (view != oracle_.dsp()) {
        return "the DSP holds: " + ToText(view) + "\n  expected: " + ToText(oracle_.dsp());
    }
    const auto wanted = oracle_.Wanted();
    if (!wanted) return "";
    ++counts_->recoveries;
    if (view == *wanted) return "";
    return "after its recovery the DSP holds: " + ToText(view) + "\n  wanted: " + ToText(*wanted);
}

std::string SoakRun::CheckContract() {
    const auto violations = monitor_->violations();
    while (violations_seen_ < violations.size()) {
        const FrameworkMonitor::Violation& violation = violations[violations_seen_++];
        if (violation.rule != FrameworkMonitor::Rule::kSecondEventAfterDspRestart) {
            return ToText(violation);
        }
        ++counts_->events_after_restart;
    }
    return "";
}

}  // namespace

std::optional<Finding> RunSteps(const std::vector<Step>& steps, const TargetFactory& make_target,
                                SoakCounts* counts) {
    SoakRun run(make_target, counts);
    for (size_t k = 0; k < steps.size(); ++k) {
        std::string difference = run.Take(steps[k]);
        if (!difference.empty()) return Finding{k, std::move(difference)};
    }
    return std::nullopt;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
