#include "tools/audio/file_bytes.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr off_t kMaxFileBytes = off_t{1} << 30;

host::Error CannotRead(const std::string& path) {
    return host::Error("cannot read " + path + ": " + strerror(errno));
}

host::Error TooLarge(const std::string& path) {
    return host::Error(path + " is larger than 1 GiB: cut a shorter piece out of it");
}

// 0 or an errno.
int WriteTo(const std::string& path, int flags, std::span<const uint8_t> bytes) {
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), flags | O_WRONLY | O_CLOEXEC, 0666)));
    if (fd < 0 || !android::base::WriteFully(fd, bytes.data(), bytes.size())) return errno;
    // Some file systems report a full disk only now.
    return close(fd.release()) == 0 ? 0 : errno;
}

}  // namespace

host::Result<unique_fd> OpenSeekable(const std::string& path) {
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
    if (fd < 0) {
        return host::Error(StringPrintf("cannot open %s: %s; check the path and its permissions",
                                        path.c_str(), strerror(errno)));
    }
    struct stat file {};
    if (fstat(fd.get(), &file) != 0) return CannotRead(path);
    if (file.st_size > kMaxFileBytes) return TooLarge(path);
    if (S_ISREG(file.st_mode) && file.st_size > 0) return fd;

    unique_fd copy(memfd_create("copy", MFD_CLOEXEC));
    std::array<char, size_t{64} << 10> piece;
    for (off_t size = 0;;) {
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd.get(), piece.data(), piece.size()));
        if (got == 0) break;
        if (got < 0 || !android::base::WriteFully(copy, piece.data(), static_cast<size_t>(got))) {
            return CannotRead(path);
        }
        size += got;
        if (size > kMaxFileBytes) return TooLarge(path);
    }
    if (lseek(copy.get(), 0, SEEK_SET) != 0) return CannotRead(path);
    return copy;
}

host::Result<std::vector<uint8_t>> ReadFileBytes(const std::string& path) {
    const auto fd = OpenSeekable(path);
    if (!fd.ok()) return host::Error(fd.error());
    std::string bytes;
    if (!android::base::ReadFdToString(*fd, &bytes)) return CannotRead(path);
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

host::Result<void> WriteFileBytes(const std::string& path, std::span<const uint8_t> bytes) {
    struct stat existing {};
    int error = 0;
    if (stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
        error = WriteTo(path, 0, bytes);
    } else {
        // A link to the file stays a link.
        std::string target;
        if (!android::base::Realpath(path, &target)) target = path;
        const std::string partial = StringPrintf("%s.%d.part", target.c_str(), getpid());
        error = WriteTo(partial, O_CREAT | O_TRUNC, bytes);
        if (error == 0 && rename(partial.c_str(), target.c_str()) != 0) error = errno;
        if (error != 0) unlink(partial.c_str());
    }
    if (error == 0) return {};
    return host::Error(StringPrintf(
            "cannot write %s: %s; check that its folder exists, is writable and has room",
            path.c_str(), strerror(error)));
}

}  // namespace sthal::audio
