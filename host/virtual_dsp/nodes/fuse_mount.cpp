#include "host/virtual_dsp/nodes/fuse_mount.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace virtual_dsp {
namespace {

// Moves the descriptor to the upper end of the table. The serving thread has a table of its own, in
// which the low numbers would mean other files than in the rest of the program; whoever watches
// descriptors by number only (ThreadSanitizer, a person with strace) would take them for the same.
int MoveUp(int fd) {
    constexpr int kFromTheEnd = 16;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= kFromTheEnd) return fd;
    constexpr rlim_t kHighest = 4096;  // A table costs memory up to its highest number.
    const int lowest = static_cast<int>(std::min(limit.rlim_cur, kHighest)) - kFromTheEnd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, lowest);
    if (moved < 0) return fd;
    close(fd);
    return moved;
}

}  // namespace

int MountFuse(const std::string& directory, std::string* error) {
    const int opened = open("/dev/fuse", O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (opened < 0) {
        *error = std::string("cannot open /dev/fuse: ") + strerror(errno);
        return -1;
    }
    const int fd = MoveUp(opened);
    const std::string options = "fd=" + std::to_string(fd) +
                                ",rootmode=40000,user_id=" + std::to_string(getuid()) +
                                ",group_id=" + std::to_string(getgid());
    if (mount("virtual_dsp", directory.c_str(), "fuse", MS_NOSUID | MS_NODEV | MS_NOEXEC,
              options.c_str()) != 0) {
        *error = "cannot mount a FUSE file system on " + directory + ": " + strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

void UnmountFuse(const std::string& directory) {
    (void)umount2(directory.c_str(), MNT_DETACH);
}

}  // namespace virtual_dsp
