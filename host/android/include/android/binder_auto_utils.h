// Host stand-in with the published declarations: owners of a descriptor, a call's status and a
// binder.
#pragma once

#include <android/binder_status.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

struct AIBinder;

namespace ndk {

/**
 * Shares ownership of a binder. There is only one process here, so a binder serves as an object's
 * identity and nothing travels through it.
 */
class SpAIBinder {
  public:
    SpAIBinder() = default;
    explicit SpAIBinder(std::shared_ptr<AIBinder> binder) : binder_(std::move(binder)) {}

    [[nodiscard]] AIBinder* get() const { return binder_.get(); }

    bool operator==(const SpAIBinder& rhs) const { return get() == rhs.get(); }
    bool operator!=(const SpAIBinder& rhs) const { return get() != rhs.get(); }
    bool operator<(const SpAIBinder& rhs) const { return binder_ < rhs.binder_; }

  private:
    std::shared_ptr<AIBinder> binder_;
};

/** Owns a file descriptor and closes it; -1 stands for none. Compares by number. */
class ScopedFileDescriptor {
  public:
    ScopedFileDescriptor() = default;
    explicit ScopedFileDescriptor(int fd) : fd_(fd) {}
    ~ScopedFileDescriptor() { set(-1); }

    ScopedFileDescriptor(const ScopedFileDescriptor&) = delete;
    ScopedFileDescriptor& operator=(const ScopedFileDescriptor&) = delete;
    ScopedFileDescriptor(ScopedFileDescriptor&& other) noexcept
        : fd_(std::exchange(other.fd_, -1)) {}
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&& other) noexcept {
        if (this != &other) set(std::exchange(other.fd_, -1));
        return *this;
    }

    [[nodiscard]] int get() const { return fd_; }
    // Closes the descriptor owned so far.
    void set(int fd);
    // A second descriptor of the same open file; owns -1 with errno set if there is none to be had.
    [[nodiscard]] ScopedFileDescriptor dup() const;

    bool operator==(const ScopedFileDescriptor& rhs) const { return fd_ == rhs.fd_; }
    bool operator!=(const ScopedFileDescriptor& rhs) const { return fd_ != rhs.fd_; }
    bool operator<(const ScopedFileDescriptor& rhs) const { return fd_ < rhs.fd_; }
    bool operator<=(const ScopedFileDescriptor& rhs) const { return fd_ <= rhs.fd_; }
    bool operator>(const ScopedFileDescriptor& rhs) const { return fd_ > rhs.fd_; }
    bool operator>=(const ScopedFileDescriptor& rhs) const { return fd_ >= rhs.fd_; }

  private:
    int fd_ = -1;
};

/** What a binder call came to: an exception code and, for a service's own errors, its number. */
class ScopedAStatus {
  public:
    ScopedAStatus() = default;
    ScopedAStatus(const ScopedAStatus&) = delete;
    ScopedAStatus& operator=(const ScopedAStatus&) = delete;
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    static ScopedAStatus ok() { return {}; }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception);
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message);
    static ScopedAStatus fromServiceSpecificError(int32_t error);
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t error, const char* message);

    [[nodiscard]] bool isOk() const { return exception_ == EX_NONE; }
    [[nodiscard]] binder_exception_t getExceptionCode() const { return exception_; }
    // 0 unless the exception is EX_SERVICE_SPECIFIC.
    [[nodiscard]] int32_t getServiceSpecificError() const { return error_; }
    [[nodiscard]] const char* getMessage() const { return message_.c_str(); }
    // For logs, e.g. "Status(-8, EX_SERVICE_SPECIFIC): '1: no free model slot'".
    [[nodiscard]] std::string getDescription() const;

  private:
    ScopedAStatus(binder_exception_t exception, int32_t error, const char* message);

    binder_exception_t exception_ = EX_NONE;
    int32_t error_ = 0;
    std::string message_;
};

}  // namespace ndk
