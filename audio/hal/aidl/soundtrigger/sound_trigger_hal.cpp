// How the HAL is built, initialised, destroyed and dumped.
#define LOG_TAG "StHal::SoundTriggerHal"

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <aidl/android/media/soundtrigger/RecognitionMode.h>
#include <android-base/logging.h>
#include <fcntl.h>
#include <pthread.h>

#include <utility>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_adapter.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_tuning_manager.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"
#include "audio/hal/utils/file/file.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using ::aidl::android::media::soundtrigger::AudioCapabilities;
using ::aidl::android::media::soundtrigger::Properties;
using ::aidl::android::media::soundtrigger::RecognitionMode;

using utils::dumpsys::Dumpsys;

constexpr char kControlThreadName[] = "SthalControl";
static_assert(sizeof(kControlThreadName) <= 16, "the kernel keeps 15 characters of it");

constexpr char kWakeLockName[] = "st-hal-hotword";

Properties InitialProperties() {
    Properties properties;
    properties.implementor = "Quarno Vexor team";
    properties.description = "Sound Trigger HAL";
    properties.version = 1;  // This and the architecture are the DSP's to say: see GetProperties.
    properties.uuid = "3f9c2e61-7b4d-4a85-9e07-c1d2b6a4f058";
    properties.supportedModelArch = "fusion";
    properties.maxSoundModels = kMaxSoundModels;
    properties.maxKeyPhrases = 1;
    properties.maxUsers = 1;
    properties.recognitionModes = static_cast<int32_t>(RecognitionMode::VOICE_TRIGGER) |
                                  static_cast<int32_t>(RecognitionMode::GENERIC_TRIGGER);
    properties.captureTransition = true;
    properties.maxBufferMs = 8000;
    properties.concurrentCapture = true;
    properties.triggerInEvent = false;
    properties.powerConsumptionMw = 0;
    properties.audioCapabilities = static_cast<int32_t>(AudioCapabilities::ECHO_CANCELLATION);
    return properties;
}

}  // namespace

std::unique_ptr<SoundTriggerHal> SoundTriggerHalBuilder::BuildSoundTriggerHal() {
    auto command_device = std::make_unique<utils::File>(zyl::kCommandDevice, O_RDWR | O_NONBLOCK);
    auto tuning_manager = std::make_unique<zyl::ZylSoundTriggerTuningManager>(zyl::kTuningFile);
    return BuildSoundTriggerHal(std::make_unique<zyl::ZylSoundTriggerAdapter>(
            std::move(command_device), std::move(tuning_manager)));
}

std::unique_ptr<SoundTriggerHal> SoundTriggerHalBuilder::BuildSoundTriggerHal(
        std::unique_ptr<SoundTriggerAdapter> adapter) {
    return std::make_unique<SoundTriggerHal>(std::move(adapter));
}

SoundTriggerHal::SoundTriggerHal(std::unique_ptr<SoundTriggerAdapter> adapter)
    : properties_(InitialProperties()), adapter_(std::move(adapter)), wake_lock_(kWakeLockName) {}

// Without the lock: no other thread knows of this object yet. The result does not matter: a DSP
// that is still down at boot gets the rest when it is reported online.
void SoundTriggerHal::ResetDspAtStart() {
    (void)ResetDsp();
}

bool SoundTriggerHal::Initialize() {
    LOG(INFO) << "Initialize";
    ResetDspAtStart();

    control_thread_ = std::thread(&SoundTriggerHal::ControlThreadLoop, this);
    if (pthread_setname_np(control_thread_.native_handle(), kControlThreadName) != 0) {
        LOG(WARNING) << "Initialize: set thread name failed";
    }

    if (sound_card_state_ == nullptr) {
        LOG(ERROR) << "Initialize: Initialize without sound card monitor";
        return true;
    }
    if (!sound_card_state_->RegisterListener(this)) {
        LOG(ERROR) << "Initialize: Failed to register sound card state listener";
        return false;
    }
    // For the caller only: the HAL waits for the monitor's report.
    return sound_card_state_->IsOnline();
}

SoundTriggerHal::~SoundTriggerHal() {
    {
        std::lock_guard lock(lock_);
        LOG(INFO) << "~SoundTriggerHal: Enter";
        stop_control_thread_ = true;
        SendControlMessage();
    }
    // Without the lock: the control thread needs it to end.
    if (control_thread_.joinable()) control_thread_.join();
    {
        std::lock_guard lock(lock_);
        LOG(INFO) << "~SoundTriggerHal: Finished";
    }
    wake_lock_.Release();
}

void SoundTriggerHal::Dump(const DumpsysInfo& info) {
    std::lock_guard lock(lock_);
    // Booleans are 1 and 0 here and words in the clients' lines: tools know each line by its form.
    Dumpsys(info, LOG_TAG) << "is dsp online: " << is_dsp_online_.load();
    Dumpsys(info, LOG_TAG) << "mic swap enabled: " << mic_swap_enabled_;
    Dumpsys(info, LOG_TAG) << "docked: " << docked_;
    Dumpsys(info, LOG_TAG) << "Active usage count: " << active_usage_count_;
    const DumpsysInfo client_info = utils::dumpsys::Nested(info);
    for (const auto& [handle, client] : clients_) client->Dump(client_info);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
