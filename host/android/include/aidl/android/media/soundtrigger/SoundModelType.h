// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

AIDL_HOST_ENUM(SoundModelType, int32_t, INVALID = -1, KEYPHRASE = 0, GENERIC = 1);

}  // namespace aidl::android::media::soundtrigger
