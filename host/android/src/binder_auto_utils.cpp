#include <android/binder_auto_utils.h>

#include <fcntl.h>
#include <unistd.h>

namespace ndk {

namespace {

std::string ExceptionName(binder_exception_t exception) {
    switch (exception) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:  // The code is a plain number, which a service may choose freely.
            return "unknown exception";
    }
}

}  // namespace

void ScopedFileDescriptor::set(int fd) {
    if (fd_ >= 0 && fd_ != fd) ::close(fd_);
    fd_ = fd;
}

ScopedFileDescriptor ScopedFileDescriptor::dup() const {
    return ScopedFileDescriptor(::fcntl(fd_, F_DUPFD_CLOEXEC, 0));
}

ScopedAStatus::ScopedAStatus(binder_exception_t exception, int32_t error, const char* message)
    : exception_(exception), error_(error), message_(message == nullptr ? "" : message) {}

ScopedAStatus ScopedAStatus::fromExceptionCode(binder_exception_t exception) {
    return ScopedAStatus(exception, 0, "");
}

ScopedAStatus ScopedAStatus::fromExceptionCodeWithMessage(binder_exception_t exception,
                                                          const char* message) {
    return ScopedAStatus(exception, 0, message);
}

ScopedAStatus ScopedAStatus::fromServiceSpecificError(int32_t error) {
    return ScopedAStatus(EX_SERVICE_SPECIFIC, error, "");
}

ScopedAStatus ScopedAStatus::fromServiceSpecificErrorWithMessage(int32_t error,
                                                                 const char* message) {
    return ScopedAStatus(EX_SERVICE_SPECIFIC, error, message);
}

std::string ScopedAStatus::getDescription() const {
    if (isOk()) return "No error";
    std::string text =
            "Status(" + std::to_string(exception_) + ", " + ExceptionName(exception_) + "): '";
    if (exception_ == EX_SERVICE_SPECIFIC) text += std::to_string(error_) + ": ";
    return text + message_ + "'";
}

}  // namespace ndk
