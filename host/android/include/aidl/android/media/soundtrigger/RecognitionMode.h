// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

AIDL_HOST_ENUM(RecognitionMode, int32_t, VOICE_TRIGGER = 1, USER_IDENTIFICATION = 2,
               USER_AUTHENTICATION = 4, GENERIC_TRIGGER = 8);

}  // namespace aidl::android::media::soundtrigger
