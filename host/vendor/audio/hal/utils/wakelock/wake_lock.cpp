#define LOG_TAG "WakeLock"

#include "audio/hal/utils/wakelock/wake_lock.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "android-base/logging.h"
#include "audio/hal/utils/file/file.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::wakelock {

namespace {

constexpr char kAcquireNode[] = "/sys/power/wake_lock";
constexpr char kReleaseNode[] = "/sys/power/wake_unlock";

// Returns 0 or a negative errno.
int WriteName(const char* node, const std::string& name) {
    File file(node, O_WRONLY);
    const int opened = file.Open();
    if (opened != 0) return opened;
    const int written = file.Write(name.data(), static_cast<int>(name.size()));
    if (written < 0) return -errno;
    return written == static_cast<int>(name.size()) ? 0 : -EIO;
}

}  // namespace

WakeLock::WakeLock(std::string name) : name_(std::move(name)) {}

WakeLock::~WakeLock() {
    if (is_held_) Release();
}

void WakeLock::Acquire() {
    if (is_held_) return;
    const int result = WriteName(kAcquireNode, name_);
    if (result != 0) {
        LOG(ERROR) << "Acquire: " << kAcquireNode << " refused " << name_ << ": "
                   << strerror(-result);
        return;
    }
    is_held_ = true;
}

void WakeLock::Release() {
    if (!is_held_ && !may_be_left_over_) return;
    const bool was_held = std::exchange(is_held_, false);
    may_be_left_over_ = false;
    const int result = WriteName(kReleaseNode, name_);
    if (result == 0) return;

    // EINVAL: the kernel has no such lock. It is as free as can be then, otherwise still held.
    is_held_ = was_held && result != -EINVAL;
    const bool expected = !was_held && (result == -EINVAL || result == -ENOENT);
    LOG(expected ? android::base::DEBUG : android::base::ERROR)
            << "Release: " << kReleaseNode << " refused " << name_ << ": " << strerror(-result);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::wakelock
