// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwCallback.h>
#include <android/binder_interface_utils.h>

namespace aidl::android::hardware::soundtrigger3 {

class BnSoundTriggerHwCallback : public ::ndk::BnCInterface<ISoundTriggerHwCallback> {};

}  // namespace aidl::android::hardware::soundtrigger3
