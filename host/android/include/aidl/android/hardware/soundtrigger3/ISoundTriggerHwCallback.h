// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/soundtrigger/PhraseRecognitionEvent.h>
#include <aidl/android/media/soundtrigger/RecognitionEvent.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

#include <cstdint>

namespace aidl::android::hardware::soundtrigger3 {

/** What the framework hears about one loaded model. */
class ISoundTriggerHwCallback : public ::ndk::ICInterface {
  public:
    inline static const char* descriptor = "android.hardware.soundtrigger3.ISoundTriggerHwCallback";

    virtual ::ndk::ScopedAStatus modelUnloaded(int32_t in_model) = 0;
    virtual ::ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t in_model,
            const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent& in_event) = 0;
    virtual ::ndk::ScopedAStatus recognitionCallback(
            int32_t in_model,
            const ::aidl::android::media::soundtrigger::RecognitionEvent& in_event) = 0;
};

}  // namespace aidl::android::hardware::soundtrigger3
