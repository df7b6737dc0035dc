// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::audio::common {

AIDL_HOST_ENUM(AudioContentType, int32_t, UNKNOWN = 0, SPEECH = 1, MUSIC = 2, MOVIE = 3,
               SONIFICATION = 4, ULTRASOUND = 1997);

}  // namespace aidl::android::media::audio::common
