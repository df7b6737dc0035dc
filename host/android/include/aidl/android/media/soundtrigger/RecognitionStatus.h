// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

AIDL_HOST_ENUM(RecognitionStatus, int32_t, INVALID = -1, SUCCESS = 0, ABORTED = 1, FAILURE = 2,
               FORCED = 3);

}  // namespace aidl::android::media::soundtrigger
