// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::audio::common {

AIDL_HOST_ENUM(AudioFormatType, int8_t, DEFAULT = 0, NON_PCM = 0, PCM = 1,
               SYS_RESERVED_INVALID = -1);

}  // namespace aidl::android::media::audio::common
