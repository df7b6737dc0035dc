// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHw.h>
#include <android/binder_interface_utils.h>

namespace aidl::android::hardware::soundtrigger3 {

class BnSoundTriggerHw : public ::ndk::BnCInterface<ISoundTriggerHw> {};

}  // namespace aidl::android::hardware::soundtrigger3
