// The DSP going and coming back, and what the phone around it does.
#define LOG_TAG "StHal::SoundTriggerHal"

#include <aidl/android/media/audio/common/Boolean.h>
#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <android-base/logging.h>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using ::aidl::android::media::audio::common::Boolean;
using ::aidl::android::media::soundtrigger::AudioCapabilities;

constexpr char kParameterPrefix[] = "vendor.vexor.st.";
constexpr char kFanChargerParameter[] = "vendor.vexor.st.wireless.charger.with.fan";

// Not a test of one bit: the neural canceller is for clients that ask for echo cancellation alone.
bool WantsNeuralAec(const SoundTriggerHalClient& client) {
    return client.recognition_config_.audioCapabilities ==
           static_cast<int32_t>(AudioCapabilities::ECHO_CANCELLATION);
}

const char* BoolText(bool value) {
    return value ? "true" : "false";
}

}  // namespace

// --- the DSP ---

void SoundTriggerHal::OnSoundCardStateChanged(bool online) {
    std::lock_guard lock(lock_);
    LOG(INFO) << "OnSoundCardStateChanged: " << BoolText(online);
    is_dsp_online_ = online;
    // Not filtered when repeated: a model that is loaded stays, a detection is restarted.
    if (online) {
        PrepareDspOnline();
    } else {
        PrepareDspOffline();
    }
    SendControlMessage();
}

void SoundTriggerHal::PrepareDspOnline() {
    // One client's failure must not keep the others down.
    for (const auto& [handle, client] : clients_) {
        if (client->is_loaded_) (void)client->RequestLoadModel();
        if (client->is_started_) (void)client->RequestStartDetecting();
    }
    (void)adapter_->SetupMicSwapInDsp(mic_swap_enabled_);
    SendDockSettings();
    ProcessAecEvent(ShouldEnableAec());
}

// The clients keep what the framework wants, and that the eraser is on: the DSP, which has lost it,
// gets it with the next change of the playback.
void SoundTriggerHal::PrepareDspOffline() {
    for (const auto& [handle, client] : clients_) client->ResetRuntimeState();
    is_notification_stale_ = true;
}

int SoundTriggerHal::ResetDsp() {
    (void)adapter_->SetupEraserInDsp(false);
    (void)adapter_->SetupMicSwapInDsp(false);
    (void)adapter_->SetupReferenceSource(false);
    (void)adapter_->SetupApProcessWithDock(false);
    wake_lock_.Release();
    (void)ResetModelInDsp(kHotwordEngine);
    (void)ResetModelInDsp(kAmbientMusicEngine);
    return adapter_->SendTuningToDsp(static_cast<int>(TuningType::Default));
}

int SoundTriggerHal::ResetModelInDsp(int engine_type) {
    (void)adapter_->StopDetectionInDsp(engine_type);
    return adapter_->UnloadSoundModelFromDsp(engine_type);
}

// --- dock, playback, routing ---

void SoundTriggerHal::OnDockChargerConnected(bool connected) {
    std::lock_guard lock(lock_);
    ProcessDockEvent(connected);
}

void SoundTriggerHal::ProcessDockEvent(bool connected) {
    if (connected == docked_) return;
    docked_ = connected;
    LOG(INFO) << "ProcessDockEvent: " << BoolText(docked_);
    if (docked_) {  // The application processor takes part in the processing, so it stays awake.
        wake_lock_.Acquire();
    } else {
        wake_lock_.Release();
    }
    if (is_dsp_online_) SendDockSettings();
}

void SoundTriggerHal::SendDockSettings() {
    (void)adapter_->SetupReferenceSource(docked_);
    (void)adapter_->SetupApProcessWithDock(docked_);
    const TuningType tuning = docked_ ? TuningType::Docked : TuningType::Default;
    (void)adapter_->SendTuningToDsp(static_cast<int>(tuning));
}

void SoundTriggerHal::OnSourceMetadataChanged(std::string_view usecase,
                                              const SourceMetadata& metadata) {
    std::lock_guard lock(lock_);
    ProcessStreamMetadata(usecase, metadata);
}

void SoundTriggerHal::ProcessStreamMetadata(std::string_view usecase,
                                            const SourceMetadata& metadata) {
    const std::optional<int32_t> active_tracks = playback_usecases_.SetTracks(usecase, metadata);
    if (!active_tracks) return;
    LOG(INFO) << "ProcessStreamMetadata: active usage tracks: " << *active_tracks;
    ProcessAecEvent(ShouldEnableAec());
}

void SoundTriggerHal::OnRoutingGraphChanged(const RoutingGraph& graph) {
    std::lock_guard lock(lock_);
    playback_usecases_.SetRouting(graph);
    ProcessAecEvent(ShouldEnableAec());
}

// --- echo cancellation ---

bool SoundTriggerHal::ShouldEnableAec() const {
    return playback_usecases_.WantsEchoCancellation();
}

void SoundTriggerHal::ProcessAecEvent(bool enable) {
    for (const auto& [handle, client] : clients_) {
        if (client->engine_type_ != EngineType::Hotword) continue;
        if (enable && !client->is_aec_enabled_ && client->is_started_) {
            if (is_dsp_online_) {
                (void)adapter_->SetupReferenceSource(docked_);
                (void)adapter_->SetupEraserInDsp(true);
                if (WantsNeuralAec(*client)) (void)adapter_->SetupNeuralAecInDsp(true);
                LOG(INFO) << "ProcessAecEvent: Eraser enabled ";
            }
            client->is_aec_enabled_ = true;
        } else if (!enable && client->is_aec_enabled_) {
            if (is_dsp_online_) {
                (void)adapter_->SetupEraserInDsp(false);
                (void)adapter_->SetupReferenceSource(docked_);
                if (WantsNeuralAec(*client)) (void)adapter_->SetupNeuralAecInDsp(false);
                LOG(INFO) << "ProcessAecEvent: Eraser disabled ";
            }
            client->is_aec_enabled_ = false;
        }
    }
}

// --- vendor parameters ---

const std::string& SoundTriggerHal::GetPrefix() const {
    // Never freed: callers may keep the reference until the process ends.
    static const std::string* const prefix = new std::string(kParameterPrefix);
    return *prefix;
}

std::optional<SoundTriggerHal::VendorParameter> SoundTriggerHal::GetParameter(const std::string&) {
    return std::nullopt;
}

bool SoundTriggerHal::SetParameter(const VendorParameter& parameter) {
    if (parameter.id != kFanChargerParameter) return false;
    std::optional<Boolean> value;
    // The value says it all: to the status, an empty holder is no error.
    (void)parameter.ext.getParcelable(&value);
    if (!value) return false;
    std::lock_guard lock(lock_);
    ProcessMicSwapEvent(value->value);
    return true;
}

void SoundTriggerHal::ProcessMicSwapEvent(bool enabled) {
    if (enabled == mic_swap_enabled_) return;
    mic_swap_enabled_ = enabled;
    LOG(INFO) << "ProcessMicSwapEvent: " << BoolText(mic_swap_enabled_);
    if (is_dsp_online_) (void)adapter_->SetupMicSwapInDsp(mic_swap_enabled_);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
