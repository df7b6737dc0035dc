#pragma once

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

// The dump writer: what every object's Dump() writes its lines with.
namespace vendor::quarno::brindlecove::audio::hal::utils::dumpsys {

namespace internal {

// write() without a SIGPIPE: a pipe or socket whose reader has gone must not end the process.
inline ssize_t WriteWithoutSigpipe(int fd, const char* data, size_t count) {
    sigset_t sigpipe;
    sigset_t previous;
    sigset_t pending;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    sigemptyset(&pending);  // A signal that is pending before the write is somebody else's.
    (void)sigpending(&pending);
    const bool was_pending = sigismember(&pending, SIGPIPE) == 1;
    if (pthread_sigmask(SIG_BLOCK, &sigpipe, &previous) != 0) return -1;
    const ssize_t written = write(fd, data, count);
    const int error = errno;
    if (written < 0 && error == EPIPE && !was_pending) {
        const timespec at_once{};
        while (sigtimedwait(&sigpipe, nullptr, &at_once) == -1 && errno == EINTR) {
        }
    }
    (void)pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = error;
    return written;
}

// What is put in one go leaves in one write(). Errors are swallowed: a dump never fails.
class FileDescriptorStreamBuffer : public std::streambuf {
  public:
    explicit FileDescriptorStreamBuffer(int32_t descriptor = -1) : fd(descriptor) {}

    const int32_t fd;  // Not owned.

  protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        const ssize_t written = WriteWithoutSigpipe(fd, data, static_cast<size_t>(count));
        return written < 0 ? 0 : written;
    }

    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) return c;
        const char byte = traits_type::to_char_type(c);
        (void)WriteWithoutSigpipe(fd, &byte, 1);
        return c;
    }
};

// Discards everything. Without state, so one serves all threads.
class NullStreamBuffer : public std::streambuf {
  public:
    static NullStreamBuffer* Shared() {
        // Never freed: a dump may still run while the process exits.
        static NullStreamBuffer* const shared = new NullStreamBuffer;
        return shared;
    }

  protected:
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    int_type overflow(int_type c) override { return c; }
};

}  // namespace internal

/**
 * A dump request: where the output goes, the indentation, and which objects are asked for. A copy
 * writes to the descriptor of the request that it was copied from, which must outlive it.
 */
struct DumpsysInfo {
    /** A request as the service receives it. `descriptor` stays the caller's. */
    explicit DumpsysInfo(int32_t descriptor) : own_buffer(descriptor), stream_buffer(&own_buffer) {}

    DumpsysInfo(const DumpsysInfo& other)
        : own_buffer(-1),
          stream_buffer(other.stream_buffer),
          indentation(other.indentation),
          args(other.args) {}
    DumpsysInfo& operator=(const DumpsysInfo&) = delete;

    internal::FileDescriptorStreamBuffer own_buffer;
    std::streambuf* stream_buffer;  // The first request's buffer, in every copy.
    int32_t indentation = 0;        // Blanks in front of each line; negative counts as 0.
    std::vector<std::string_view> args;
};

/** A copy of `info` for the objects below this one, two columns deeper. */
inline DumpsysInfo Nested(const DumpsysInfo& info) {
    constexpr int32_t kColumns = 2;
    DumpsysInfo nested(info);
    nested.indentation = std::clamp(info.indentation, 0, INT32_MAX - kColumns) + kColumns;
    return nested;
}

inline constexpr std::string_view kIndentationString =
        "                                            ";
static_assert(kIndentationString.size() == 44, "lines are indented by at most 44 blanks");

/**
 * One line of a dump, written by one write() on destruction, so that the lines of concurrent dumps
 * do not mix. Belongs to the thread that makes it.
 */
class Dumpsys {
  public:
    /** `tag` is the log tag of the dumped object; the request's arguments select by it. */
    Dumpsys(const DumpsysInfo& info, std::string_view tag) : output_(GetStreamBuffer(info, tag)) {
        const auto blanks = static_cast<size_t>(std::max(info.indentation, 0));
        line_ << kIndentationString.substr(0, blanks);
    }

    ~Dumpsys() {
        line_ << '\n';
        const std::string line = line_.str();
        output_.write(line.data(), static_cast<std::streamsize>(line.size()));
    }

    Dumpsys(const Dumpsys&) = delete;
    Dumpsys& operator=(const Dumpsys&) = delete;

    template <typename T>
    Dumpsys& operator<<(const T& value) {
        line_ << value;
        return *this;
    }

    Dumpsys& operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
        line_ << manipulator;
        return *this;
    }

    /** Where a line goes; discarded when the request has arguments and `tag` begins with none. */
    static std::streambuf* GetStreamBuffer(const DumpsysInfo& info, std::string_view tag) {
        if (info.args.empty() || tag.empty()) return info.stream_buffer;
        const bool selected =
                std::any_of(info.args.begin(), info.args.end(),
                            [tag](std::string_view arg) { return tag.starts_with(arg); });
        if (selected) return info.stream_buffer;
        return internal::NullStreamBuffer::Shared();
    }

  private:
    std::ostream output_;
    std::ostringstream line_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::dumpsys
