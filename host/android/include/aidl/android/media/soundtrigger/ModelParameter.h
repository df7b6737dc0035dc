// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

AIDL_HOST_ENUM(ModelParameter, int32_t, INVALID = -1, THRESHOLD_FACTOR = 0);

}  // namespace aidl::android::media::soundtrigger
