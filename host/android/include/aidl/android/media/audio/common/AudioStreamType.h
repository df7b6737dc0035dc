// Host stand-in with the published declarations.
// Cut to the value that an absent stream type has.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::audio::common {

AIDL_HOST_ENUM(AudioStreamType, int32_t, INVALID = -2);

}  // namespace aidl::android::media::audio::common
