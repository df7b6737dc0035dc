// Host stand-in with the published declarations: results of binder calls, as far as the audio HAL
// meets them.
#pragma once

#include <cerrno>
#include <cstdint>

enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = INT32_MIN,
    STATUS_FDS_NOT_ALLOWED = INT32_MIN + 7,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
};
typedef int32_t binder_status_t;

enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    EX_TRANSACTION_FAILED = -129,
};
typedef int32_t binder_exception_t;
