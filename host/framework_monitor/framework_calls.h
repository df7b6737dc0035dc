#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwCallback.h>
#include <aidl/android/media/soundtrigger/PhraseSoundModel.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/SoundModel.h>

#include <memory>
#include <utility>

namespace framework {

/** A sound trigger HAL as the framework calls it. Results are 0 or a negative errno. */
class FrameworkCalls {
  public:
    using SoundModel = ::aidl::android::media::soundtrigger::SoundModel;
    using PhraseSoundModel = ::aidl::android::media::soundtrigger::PhraseSoundModel;
    using RecognitionConfig = ::aidl::android::media::soundtrigger::RecognitionConfig;
    using Callback = ::aidl::android::hardware::soundtrigger3::ISoundTriggerHwCallback;

    virtual ~FrameworkCalls() = default;
    virtual int LoadSoundModel(const SoundModel& model, std::shared_ptr<Callback> callback,
                               int* handle) = 0;
    virtual int LoadPhraseSoundModel(const PhraseSoundModel& model,
                                     std::shared_ptr<Callback> callback, int* handle) {
        return LoadSoundModel(model.common, std::move(callback), handle);
    }
    virtual int UnloadSoundModel(int handle) = 0;
    virtual int StartRecognition(int handle, int io_handle, const RecognitionConfig& config) = 0;
    virtual int StopRecognition(int handle) = 0;
    virtual int ForceRecognitionEvent(int handle) = 0;
    // Takes the HAL's lock, changes nothing, and releases it.
    virtual void PassThroughLock() = 0;
};

}  // namespace framework
