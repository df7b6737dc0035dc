// Host stand-in with the published declarations.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

namespace aidl::android::hardware::soundtrigger3 {

/** What the framework hears about the service as a whole. */
class ISoundTriggerHwGlobalCallback : public ::ndk::ICInterface {
  public:
    inline static const char* descriptor =
            "android.hardware.soundtrigger3.ISoundTriggerHwGlobalCallback";

    virtual ::ndk::ScopedAStatus onResourcesAvailable() = 0;
};

}  // namespace aidl::android::hardware::soundtrigger3
