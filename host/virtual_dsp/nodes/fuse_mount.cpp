#include "host/virtual_dsp/nodes/fuse_mount.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace virtual_dsp {
namespace {

using ::android::base::unique_fd;

// Moves the descriptor to the upper end of the table. The serving thread has a table of its own, in
// which the low numbers would mean other files than in the rest of the program; whoever watches
// descriptors by number only (ThreadSanitizer, a person with strace) would take them for the same.
unique_fd MoveUp(unique_fd fd) {
    constexpr int kFromTheEnd = 16;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= kFromTheEnd) return fd;
    constexpr rlim_t kHighest = 4096;  // A table costs memory up to its highest number.
    const int lowest = static_cast<int>(std::min(limit.rlim_cur, kHighest)) - kFromTheEnd;
    unique_fd moved(fcntl(fd.get(), F_DUPFD_CLOEXEC, lowest));
    return moved.ok() ? std::move(moved) : std::move(fd);
}

}  // namespace

host::Result<unique_fd> MountFuse(const std::string& directory) {
    unique_fd opened(open("/dev/fuse", O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!opened.ok()) {
        return host::Error(std::string("cannot open /dev/fuse: ") + strerror(errno));
    }
    unique_fd fd = MoveUp(std::move(opened));
    const std::string options = "fd=" + std::to_string(fd.get()) +
                                ",rootmode=40000,user_id=" + std::to_string(getuid()) +
                                ",group_id=" + std::to_string(getgid());
    if (mount("virtual_dsp", directory.c_str(), "fuse", MS_NOSUID | MS_NODEV | MS_NOEXEC,
              options.c_str()) != 0) {
        return host::Error("cannot mount a FUSE file system on " + directory + ": " +
                           strerror(errno));
    }
    return fd;
}

void UnmountFuse(const std::string& directory) {
    (void)umount2(directory.c_str(), MNT_DETACH);
}

}  // namespace virtual_dsp
