// Host stand-in with the published declarations.
// Its members are left out: only whether a device is present matters to code built here.
#pragma once

#include <android/host/parcelable.h>

namespace aidl::android::media::audio::common {

class AudioDevice {
  public:
    AIDL_HOST_PARCELABLE("android.media.audio.common", AudioDevice);
};

}  // namespace aidl::android::media::audio::common
