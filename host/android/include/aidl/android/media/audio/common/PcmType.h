// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::audio::common {

AIDL_HOST_ENUM(PcmType, int8_t, DEFAULT = 0, UINT_8_BIT = 0, INT_16_BIT = 1, INT_32_BIT = 2,
               FIXED_Q_8_24 = 3, FLOAT_32_BIT = 4, INT_24_BIT = 5);

}  // namespace aidl::android::media::audio::common
