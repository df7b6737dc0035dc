#include "tools/audio/file_bytes.h"

#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

constexpr size_t kMaxFileBytes = size_t{1} << 30;
constexpr size_t kPieceBytes = size_t{64} << 10;

std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

// 0 or an errno.
int WriteFully(int fd, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = TEMP_FAILURE_RETRY(write(fd, bytes.data(), bytes.size()));
        if (written < 0) return errno;
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
    return 0;
}

// 0 or an errno.
int WriteTo(const std::string& path, int flags, std::span<const uint8_t> bytes) {
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), flags | O_WRONLY | O_CLOEXEC, 0666)));
    if (fd < 0) return errno;
    if (const int error = WriteFully(fd, bytes); error != 0) return error;
    // Some file systems report a full disk only now.
    return close(fd.release()) == 0 ? 0 : errno;
}

// Where `path` leads, so that a link to the file stays a link when the file is replaced.
std::string Resolve(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
    return real ? real.get() : path;
}

}  // namespace

Result<std::vector<uint8_t>> ReadFileBytes(const std::string& path) {
    using Bytes = Result<std::vector<uint8_t>>;
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
    if (fd < 0) {
        return Bytes::Error(StringPrintf("cannot open %s: %s; check the path and its permissions",
                                         path.c_str(), ErrorText(errno).c_str()));
    }
    std::vector<uint8_t> bytes;
    for (size_t size = 0;;) {
        bytes.resize(size + kPieceBytes);
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd, bytes.data() + size, kPieceBytes));
        if (got < 0) {
            return Bytes::Error(
                    StringPrintf("cannot read %s: %s", path.c_str(), ErrorText(errno).c_str()));
        }
        size += static_cast<size_t>(got);
        if (size > kMaxFileBytes) {
            return Bytes::Error(StringPrintf(
                    "%s is larger than 1 GiB: cut a shorter piece out of it", path.c_str()));
        }
        if (got == 0) {
            bytes.resize(size);
            return Bytes::Of(std::move(bytes));
        }
    }
}

std::string WriteFileBytes(const std::string& path, std::span<const uint8_t> bytes) {
    struct stat existing {};
    const bool exists = stat(path.c_str(), &existing) == 0;
    int error = 0;
    if (exists && !S_ISREG(existing.st_mode)) {
        error = WriteTo(path, 0, bytes);
    } else {
        const std::string target = Resolve(path);
        const std::string partial = StringPrintf("%s.%d.part", target.c_str(), getpid());
        error = WriteTo(partial, O_CREAT | O_TRUNC, bytes);
        if (error == 0 && rename(partial.c_str(), target.c_str()) != 0) error = errno;
        if (error != 0) unlink(partial.c_str());
    }
    if (error == 0) return {};
    return StringPrintf(
            "cannot write %s: %s; check that its folder exists, is writable and has room",
            path.c_str(), ErrorText(error).c_str());
}

}  // namespace sthal::audio
