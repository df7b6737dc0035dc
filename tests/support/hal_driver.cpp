#include "tests/support/hal_driver.h"

#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/audio/common/Boolean.h>

#include <android-base/logging.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <string>
#include <utility>

#include "tests/support/model.h"
#include "tools/hal_calls.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using Kind = Step::Kind;

namespace {

using ::aidl::android::media::audio::common::AudioUsage;
using ::framework::HalCalls;

constexpr std::array<const char*, 4> kUsecases = {"primary-playback", "deep-buffer-playback",
                                                  "compress-offload-playback", "haptic-playback"};

}  // namespace

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

HalDriver::HalDriver(std::unique_ptr<SoundTriggerHal> hal, ModelMaker make_model,
                     std::shared_ptr<RecordingCallback> callback)
    : make_model_(std::move(make_model)),
      callback_(std::move(callback)),
      monitor_(std::make_unique<HalCalls>(hal.get())),
      hal_(std::move(hal)) {}

std::vector<ClientView> HalDriver::clients() {
    return SoundTriggerHalPeer::Clients(*hal_);
}

bool HalDriver::IsIdle(const std::function<bool()>& is_drained) {
    return SoundTriggerHalPeer::IsIdle(*hal_, is_drained);
}

std::optional<int> HalDriver::Apply(const Step& step) {
    switch (step.kind) {
        case Kind::kLoad:
            return Load(step);
        case Kind::kUnload:
            return monitor_.UnloadSoundModel(step.a);
        case Kind::kStart:
            return Start(step);
        case Kind::kStop:
            return monitor_.StopRecognition(step.a);
        case Kind::kForce:
            return monitor_.ForceRecognitionEvent(step.a);
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
        case Kind::kMicSwap:
            return MicSwap(step.a != 0);
        case Kind::kDock:
            hal_->OnDockChargerConnected(step.a != 0);
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
        default:
            CHECK(false) << "no step of the framework's: " << ToText(step);
    }
    return std::nullopt;
}

int HalDriver::Load(const Step& step) {
    constexpr SoundModelType kTypes[] = {SoundModelType::KEYPHRASE, SoundModelType::GENERIC,
                                         SoundModelType::INVALID};
    const std::vector<uint8_t> bytes = make_model_(std::min(step.a, 1) + 1, step.b);
    SoundModel model = ModelOf(kTypes[step.a], "model " + std::to_string(step.b), bytes);
    if (step.c == 1) model.dataSize = 0;
    if (step.c == 2) model.data.set(-1);
    int handle = -1;
    const int result = monitor_.LoadSoundModel(model, callback_, &handle);
    return result == 0 ? handle : result;
}

int HalDriver::Start(const Step& step) {
    const StartConfiguration& wanted = kConfigurations[static_cast<size_t>(step.c)];
    SoundTriggerHal::RecognitionConfig config;
    config.captureRequested = wanted.is_capture_requested;
    config.audioCapabilities = wanted.audio_capabilities;
    if (wanted.extra >= 0) config.phraseRecognitionExtras.emplace_back().id = wanted.extra;
    return monitor_.StartRecognition(step.a, step.b, config);
}

int HalDriver::MicSwap(bool is_on) {
    SoundTriggerHal::VendorParameter parameter;
    parameter.id = "vendor.vexor.st.wireless.charger.with.fan";
    ::aidl::android::media::audio::common::Boolean value;
    value.value = is_on;
    if (parameter.ext.setParcelable(value) != STATUS_OK) return -1;
    return hal_->SetParameter(parameter) ? 0 : -1;
}

void HalDriver::Route(int usecases) {
    SoundTriggerHal::RoutingGraph graph;
    graph.edges.push_back({"deep-buffer-playback", "headset"});
    for (size_t k = 0; k < kUsecases.size(); ++k) {
        if ((usecases >> k & 1) != 0) graph.edges.push_back({kUsecases[k], "speaker"});
    }
    hal_->OnRoutingGraphChanged(graph);
}

void HalDriver::Metadata(int usecase, int tracks) {
    SoundTriggerHal::SourceMetadata metadata;
    metadata.tracks.resize(static_cast<size_t>(tracks) + 1);
    for (auto& track : metadata.tracks) track.usage = AudioUsage::GAME;
    metadata.tracks.back().usage = AudioUsage::ASSISTANCE_SONIFICATION;
    hal_->OnSourceMetadataChanged(kUsecases[static_cast<size_t>(usecase)], metadata);
}

void HalDriver::Online(bool is_online) {
    if (is_online) monitor_.BeginDspRestart();
    hal_->OnSoundCardStateChanged(is_online);
    if (is_online) monitor_.EndDspRestart();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
