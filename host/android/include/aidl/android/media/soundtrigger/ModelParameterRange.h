// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>

namespace aidl::android::media::soundtrigger {

class ModelParameterRange {
  public:
    int32_t minInclusive = 0;
    int32_t maxInclusive = 0;

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", ModelParameterRange, minInclusive,
                         maxInclusive);
};

}  // namespace aidl::android::media::soundtrigger
