// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

namespace aidl::android::media::audio::common {

class Boolean {
  public:
    bool value = false;

    AIDL_HOST_PARCELABLE("android.media.audio.common", Boolean, value);
};

}  // namespace aidl::android::media::audio::common
