// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

AIDL_HOST_ENUM(AudioCapabilities, int32_t, ECHO_CANCELLATION = 1, NOISE_SUPPRESSION = 2);

}  // namespace aidl::android::media::soundtrigger
