// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::audio::common {

AIDL_HOST_ENUM(AudioUsage, int32_t, INVALID = -1, UNKNOWN = 0, MEDIA = 1, VOICE_COMMUNICATION = 2,
               VOICE_COMMUNICATION_SIGNALLING = 3, ALARM = 4, NOTIFICATION = 5,
               NOTIFICATION_TELEPHONY_RINGTONE = 6,
               SYS_RESERVED_NOTIFICATION_COMMUNICATION_REQUEST = 7,
               SYS_RESERVED_NOTIFICATION_COMMUNICATION_INSTANT = 8,
               SYS_RESERVED_NOTIFICATION_COMMUNICATION_DELAYED = 9, NOTIFICATION_EVENT = 10,
               ASSISTANCE_ACCESSIBILITY = 11, ASSISTANCE_NAVIGATION_GUIDANCE = 12,
               ASSISTANCE_SONIFICATION = 13, GAME = 14, VIRTUAL_SOURCE = 15, ASSISTANT = 16,
               CALL_ASSISTANT = 17, EMERGENCY = 1000, SAFETY = 1001, VEHICLE_STATUS = 1002,
               ANNOUNCEMENT = 1003);

}  // namespace aidl::android::media::audio::common
