// Host stand-in with the published declarations.
// The service-specific error codes of a sound trigger service's binder status.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

AIDL_HOST_ENUM(Status, int32_t, INVALID = -1, SUCCESS = 0, RESOURCE_CONTENTION = 1,
               OPERATION_NOT_SUPPORTED = 2, TEMPORARY_PERMISSION_DENIED = 3, DEAD_OBJECT = 4,
               INTERNAL_ERROR = 5);

}  // namespace aidl::android::media::soundtrigger
