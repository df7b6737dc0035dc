// Host stand-in with the published declarations.
// Cut to the value that an absent mode has.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::audio::common {

AIDL_HOST_ENUM(AudioEncapsulationMode, int8_t, INVALID = -1);

}  // namespace aidl::android::media::audio::common
