// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwCallback.h>
#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwGlobalCallback.h>
#include <aidl/android/media/soundtrigger/ModelParameter.h>
#include <aidl/android/media/soundtrigger/ModelParameterRange.h>
#include <aidl/android/media/soundtrigger/PhraseSoundModel.h>
#include <aidl/android/media/soundtrigger/Properties.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/SoundModel.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace aidl::android::hardware::soundtrigger3 {

/** The framework's view of the sound trigger hardware; the vendor audio service implements it. */
class ISoundTriggerHw : public ::ndk::ICInterface {
  public:
    inline static const char* descriptor = "android.hardware.soundtrigger3.ISoundTriggerHw";

    virtual ::ndk::ScopedAStatus getProperties(
            ::aidl::android::media::soundtrigger::Properties* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus registerGlobalCallback(
            const std::shared_ptr<ISoundTriggerHwGlobalCallback>& in_callback) = 0;
    virtual ::ndk::ScopedAStatus loadSoundModel(
            const ::aidl::android::media::soundtrigger::SoundModel& in_soundModel,
            const std::shared_ptr<ISoundTriggerHwCallback>& in_callback, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus loadPhraseSoundModel(
            const ::aidl::android::media::soundtrigger::PhraseSoundModel& in_soundModel,
            const std::shared_ptr<ISoundTriggerHwCallback>& in_callback, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus unloadSoundModel(int32_t in_modelHandle) = 0;
    virtual ::ndk::ScopedAStatus startRecognition(
            int32_t in_modelHandle, int32_t in_deviceHandle, int32_t in_ioHandle,
            const ::aidl::android::media::soundtrigger::RecognitionConfig& in_config) = 0;
    virtual ::ndk::ScopedAStatus stopRecognition(int32_t in_modelHandle) = 0;
    virtual ::ndk::ScopedAStatus forceRecognitionEvent(int32_t in_modelHandle) = 0;
    virtual ::ndk::ScopedAStatus queryParameter(
            int32_t in_modelHandle,
            ::aidl::android::media::soundtrigger::ModelParameter in_modelParam,
            std::optional<::aidl::android::media::soundtrigger::ModelParameterRange>*
                    _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getParameter(
            int32_t in_modelHandle,
            ::aidl::android::media::soundtrigger::ModelParameter in_modelParam,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setParameter(
            int32_t in_modelHandle,
            ::aidl::android::media::soundtrigger::ModelParameter in_modelParam,
            int32_t in_value) = 0;
};

}  // namespace aidl::android::hardware::soundtrigger3
