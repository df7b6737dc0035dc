#include "tools/sthal/phone/service.h"

#include <aidl/android/hardware/audio/common/SourceMetadata.h>
#include <aidl/android/media/audio/common/Boolean.h>
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

#include "host/virtual_dsp/dsp/journal.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tools/hal_calls.h"

namespace sthal {

namespace {

using ::aidl::android::hardware::audio::common::SourceMetadata;
using ::aidl::android::hardware::audio::core::VendorParameter;
using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::audio::common::Boolean;
using ::aidl::android::media::soundtrigger::PhraseSoundModel;
using ::aidl::android::media::soundtrigger::Properties;
using ::aidl::android::media::soundtrigger::RecognitionConfig;
using ::aidl::android::media::soundtrigger::SoundModel;
using ::aidl::android::media::soundtrigger::SoundModelType;
using framework::FrameworkMonitor;
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
    if (!fd.ok() || !android::base::WriteFully(fd, contents.data(), contents.size()) ||
        lseek(fd.get(), 0, SEEK_SET) != 0) {
        return {};
    }
    return fd;
}

// What became of the model's bytes, as the DSP would read them.
Model ModelOf(int handle, const std::string& name, std::span<const uint8_t> bytes) {
    Model model{.ns = BoottimeNow(), .handle = handle, .name = name};
    if (auto parsed = virtual_dsp::ParseSoundModel(bytes); parsed.ok()) {
        model.engine = parsed->engine;
        model.threshold = static_cast<double>(parsed->threshold);
        model.pattern = std::move(parsed->pcm_template);
    }
    return model;
}

}  // namespace

Service::Service(RunRecord& record, ServiceSurroundings surroundings)
    : record_(record),
      surroundings_(std::move(surroundings)),
      framework_(ndk::SharedRefBase::make<FrameworkCallback>([this](Event& event) {
          event.record_ns = surroundings_.latest_record_ns();
          record_.Add(event);
          event.returned_ns = BoottimeNow();
          record_.Add(event);
      })) {
    BuildHal();
}

Service::~Service() = default;

void Service::BuildHal() {
    hal_ = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    hal_->SetSoundCardState(&sound_card_);
    monitor_ = std::make_unique<FrameworkMonitor>(
            std::make_unique<framework::HalCalls>(hal_.get()), kLockDeadline,
            [this](const FrameworkMonitor::Violation& violation) {
                record_.Add(BrokenRule{.ns = BoottimeNow(), .violation = violation});
            });
}

std::optional<BrokenRule> Service::broken_rule() const {
    if (broken_earlier_) return broken_earlier_;
    for (const auto& violation : monitor_->violations()) {
        if (!IsNoteOnly(violation)) return BrokenRule{.violation = violation};
    }
    return std::nullopt;
}

// --- the audio service ---

bool Service::Initialize() {
    CallSpan span(record_, {.operation = Operation::kInitialize});
    const bool online = hal_->Initialize();
    // The sound card comes up a little later on a phone, too; a report before the control thread
    // has made its pipe would be logged as an error of no consequence.
    std::this_thread::sleep_for(kSoundCardDelay);
    span.call().on = online;
    return online;
}

void Service::ReportDsp(bool online) {
    const CallSpan span(record_, {.operation = Operation::kOnSoundCardStateChanged, .on = online});
    if (online) monitor_->BeginDspRestart();
    sound_card_.Report(online);
    if (online) monitor_->EndDspRestart();
}

void Service::Restart() {
    record_.AddRemark("the audio service ends, and with it the HAL and all models");
    broken_earlier_ = broken_rule();
    sound_card_.UnregisterListener(hal_.get());
    hal_.reset();
    BuildHal();
    if (Initialize()) ReportDsp(true);
}

void Service::Dock(bool connected) {
    {
        const CallSpan span(record_,
                            {.operation = Operation::kOnDockChargerConnected, .on = connected});
        hal_->OnDockChargerConnected(connected);
    }
    record_.Add(WakeLocksHeld{.ns = BoottimeNow(), .names = surroundings_.wake_locks()});
}

void Service::SetRoutes(std::vector<Route> routes) {
    RoutingGraph graph;
    for (const Route& route : routes) graph.edges.push_back({route.usecase, route.device});
    const CallSpan span(
            record_, {.operation = Operation::kOnRoutingGraphChanged, .routes = std::move(routes)});
    hal_->OnRoutingGraphChanged(graph);
}

void Service::PlayTracks(std::string_view usecase, std::vector<AudioUsage> usages) {
    SourceMetadata metadata;
    for (const AudioUsage usage : usages) metadata.tracks.emplace_back().usage = usage;
    const CallSpan span(record_, {.operation = Operation::kOnSourceMetadataChanged,
                                  .name = std::string(usecase),
                                  .usages = std::move(usages)});
    hal_->OnSourceMetadataChanged(usecase, metadata);
}

void Service::FanCharger(bool present) {
    VendorParameter parameter;
    parameter.id = kFanChargerParameter;
    Boolean value;
    value.value = present;
    (void)parameter.ext.setParcelable(value);  // A copy in memory, which cannot fail.
    CallSpan span(
            record_,
            {.operation = Operation::kSetParameter, .on = present, .name = kFanChargerParameter});
    span.call().accepted = hal_->SetParameter(parameter);
}

std::string Service::ReadDump(std::span<const std::string_view> arguments) {
    const android::base::unique_fd file = MemoryFile("dump", {});
    if (!file.ok()) return "(no memory for the dump)\n";
    DumpsysInfo info(file.get());
    info.args.assign(arguments.begin(), arguments.end());
    {
        const CallSpan span(record_, {.operation = Operation::kDump});
        hal_->Dump(info);
    }
    Dump dump{.ns = BoottimeNow()};
    if (lseek(file.get(), 0, SEEK_SET) == 0) {
        (void)android::base::ReadFdToString(file, &dump.text);  // What there is of it.
    }
    record_.Add(dump);
    return dump.text;
}

// --- the framework ---

int Service::GetProperties(Properties* properties) {
    CallSpan span(record_, {.operation = Operation::kGetProperties});
    const int result = hal_->GetProperties(properties);
    span.End(result);
    return result;
}

int Service::Load(SoundModelType type, std::span<const uint8_t> model, const std::string& name,
                  int* handle) {
    SoundModel sound_model;
    sound_model.type = type;
    sound_model.uuid = "6a2f1c9e-0b57-4e1d-9a44-5d3e8f7c0011";
    sound_model.vendorUuid = "vendor-" + name;
    sound_model.data.set(MemoryFile("sound-model", model).release());
    sound_model.dataSize = static_cast<int32_t>(model.size());
    const bool is_phrase = type == SoundModelType::KEYPHRASE;
    CallSpan span(record_, {.operation = is_phrase ? Operation::kLoadPhraseSoundModel
                                                   : Operation::kLoadSoundModel,
                            .name = name,
                            .bytes = model.size()});
    int result = 0;
    if (is_phrase) {
        PhraseSoundModel phrase_model;
        phrase_model.common = std::move(sound_model);
        phrase_model.phrases.emplace_back().text = name;
        result = monitor_->LoadPhraseSoundModel(phrase_model, framework_, handle);
    } else {
        result = monitor_->LoadSoundModel(sound_model, framework_, handle);
    }
    if (result != 0) *handle = 0;
    span.call().handle = *handle;
    span.End(result);
    record_.Add(ModelOf(*handle, name, model));
    return result;
}

int Service::Start(int handle, int io_handle, const RecognitionConfig& config) {
    CallSpan span(
            record_,
            {.operation = Operation::kStartRecognition, .handle = handle, .io_handle = io_handle});
    const int result = monitor_->StartRecognition(handle, io_handle, config);
    span.End(result);
    return result;
}

int Service::CallModel(Operation operation, int handle, int (FrameworkMonitor::*call)(int)) {
    CallSpan span(record_, {.operation = operation, .handle = handle});
    const int result = (*monitor_.*call)(handle);
    span.End(result);
    return result;
}

int Service::Stop(int handle) {
    return CallModel(Operation::kStopRecognition, handle, &FrameworkMonitor::StopRecognition);
}

int Service::Unload(int handle) {
    return CallModel(Operation::kUnloadSoundModel, handle, &FrameworkMonitor::UnloadSoundModel);
}

int Service::ForceRecognition(int handle) {
    return CallModel(Operation::kForceRecognitionEvent, handle,
                     &FrameworkMonitor::ForceRecognitionEvent);
}

}  // namespace sthal
