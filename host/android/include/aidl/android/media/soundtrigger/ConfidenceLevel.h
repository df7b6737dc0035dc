// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>

namespace aidl::android::media::soundtrigger {

class ConfidenceLevel {
  public:
    int32_t userId = 0;
    int32_t levelPercent = 0;

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", ConfidenceLevel, userId, levelPercent);
};

}  // namespace aidl::android::media::soundtrigger
