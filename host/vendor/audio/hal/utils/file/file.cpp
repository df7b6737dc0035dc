#include "audio/hal/utils/file/file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

namespace vendor::quarno::brindlecove::audio::hal::utils {

namespace {

using Clock = std::chrono::steady_clock;

timespec TimeLeft(Clock::time_point deadline) {
    const auto left = std::max(Clock::duration::zero(), deadline - Clock::now());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    timespec result = {};
    result.tv_sec = static_cast<time_t>(seconds.count());
    result.tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - seconds).count());
    return result;
}

}  // namespace

File::File(const char* path, int flags) : flags_(flags) {
    const size_t length = path == nullptr ? 0 : strlen(path);
    path_fits_ = length < path_.size();
    const size_t kept = std::min(length, path_.size() - 1);
    if (kept > 0) memcpy(path_.data(), path, kept);
    path_[kept] = '\0';
}

File::~File() {
    Close();
}

int File::Open() {
    Close();
    if (!path_fits_) return -ENAMETOOLONG;
    do {
        fd_ = ::open(path_.data(), flags_ | O_CLOEXEC, S_IRUSR | S_IWUSR);
    } while (fd_ < 0 && errno == EINTR);
    return fd_ < 0 ? -errno : 0;
}

int File::Open(int attempts, int delay_us) {
    int result = Open();
    for (int attempt = 1; attempt < attempts && result != 0 && path_fits_; ++attempt) {
        std::this_thread::sleep_for(std::chrono::microseconds(std::max(delay_us, 0)));
        result = Open();
    }
    return result;
}

int File::PollIn(int timeout_ms) {
    // poll() itself would pass over a closed descriptor and sit out the time.
    if (fd_ < 0) return -EBADF;

    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    pollfd waited = {.fd = fd_, .events = POLLIN, .revents = 0};
    int ready = 0;
    do {
        const timespec left = TimeLeft(deadline);
        ready = ::ppoll(&waited, 1, timeout_ms < 0 ? nullptr : &left, nullptr);
    } while (ready < 0 && errno == EINTR);

    if (ready < 0) return -errno;
    if (ready == 0) return -ETIMEDOUT;
    if ((waited.revents & POLLIN) != 0) return 0;
    return (waited.revents & POLLNVAL) != 0 ? -EBADF : -EIO;
}

int File::Read(char* buffer, int size) {
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(::read(fd_, buffer, static_cast<size_t>(size)));
}

int File::Write(const char* data, int size) {
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(::write(fd_, data, static_cast<size_t>(size)));
}

void File::Close() {
    if (fd_ < 0) return;
    // Not repeated after EINTR: Linux has given the number free by then.
    (void)::close(fd_);
    fd_ = -1;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils
