// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwGlobalCallback.h>
#include <android/binder_interface_utils.h>

namespace aidl::android::hardware::soundtrigger3 {

class BnSoundTriggerHwGlobalCallback : public ::ndk::BnCInterface<ISoundTriggerHwGlobalCallback> {};

}  // namespace aidl::android::hardware::soundtrigger3
