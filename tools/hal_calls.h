#pragma once

#include <memory>
#include <utility>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/framework_monitor/framework_calls.h"

namespace framework {

/** The product's HAL, as the framework calls it. */
class HalCalls final : public FrameworkCalls {
  public:
    using SoundTriggerHal =
            ::vendor::quarno::brindlecove::audio::hal::soundtrigger::SoundTriggerHal;

    explicit HalCalls(SoundTriggerHal* hal) : hal_(hal) {}

    int LoadSoundModel(const SoundModel& model, std::shared_ptr<Callback> callback,
                       int* handle) override {
        return hal_->LoadSoundModel(model, std::move(callback), handle);
    }
    int LoadPhraseSoundModel(const PhraseSoundModel& model, std::shared_ptr<Callback> callback,
                             int* handle) override {
        return hal_->LoadPhraseSoundModel(model, std::move(callback), handle);
    }
    int UnloadSoundModel(int handle) override { return hal_->UnloadSoundModel(handle); }
    int StartRecognition(int handle, int io_handle, const RecognitionConfig& config) override {
        return hal_->StartRecognition(handle, 0, io_handle, config);
    }
    int StopRecognition(int handle) override { return hal_->StopRecognition(handle); }
    int ForceRecognitionEvent(int handle) override { return hal_->ForceRecognitionEvent(handle); }
    void PassThroughLock() override { hal_->OnSourceMetadataChanged("no usecase", {}); }

  private:
    SoundTriggerHal* const hal_;
};

}  // namespace framework
