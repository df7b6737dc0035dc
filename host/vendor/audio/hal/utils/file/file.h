#pragma once

#include <array>

namespace vendor::quarno::brindlecove::audio::hal::utils {

/**
 * A device node (or any other file) that is opened, polled, read and written by plain system calls.
 *
 * Owns its descriptor and closes it on destruction. Allocates nothing, so code that must not
 * allocate can use it. Not thread-safe: one thread at a time uses an object.
 */
class File {
  public:
    /** Longest path that can be opened, the terminating NUL included. */
    static constexpr int kPathBytes = 256;

    /**
     * Stores what to open; touches no file.
     *
     * @param path   NUL-terminated; copied. Null counts as empty.
     * @param flags  As for open(2); O_CLOEXEC is always added. A flag that creates the file makes
     * it readable and writable by its owner only.
     */
    explicit File(const char* path, int flags);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /**
     * Opens the file, in one attempt. A descriptor that is still open is closed first.
     *
     * @return 0 or a negative errno; -ENAMETOOLONG also for a path of kPathBytes or more.
     */
    [[nodiscard]] int Open();

    /**
     * Opens the file, and tries again after a failure, because a node appears only when its driver
     * has come up.
     *
     * @param attempts  How often to try; anything below 1 counts as 1.
     * @param delay_us  Microseconds to wait between two attempts (not after the last one), in full
     *                  even when signals arrive; negative counts as 0.
     * @return 0, or the negative errno of the last attempt. A path that is too long is not retried.
     */
    [[nodiscard]] int Open(int attempts, int delay_us);

    /**
     * Waits until a read would find data.
     *
     * @param timeout_ms  Milliseconds to wait; 0 does not wait, a negative value waits without
     *                    limit. Signals do not prolong the wait.
     * @return 0 there is data, even if the other end has hung up after sending it; -ETIMEDOUT; -EIO
     *         the device reports an error or a hang-up and has no data; -EBADF the file is not
     *         open; another negative errno if the wait itself failed.
     */
    [[nodiscard]] int PollIn(int timeout_ms);

    /**
     * Reads once. An interrupted read is reported to the caller, because only the caller knows
     * whether to stop or to go on.
     *
     * @param size  Bytes that `buffer` holds; negative is refused with EINVAL.
     * @return Bytes read, 0 at the end of the file, or -1 with errno set (EAGAIN: non-blocking and
     *         nothing there; EINTR: a signal came first; EBADF: not open).
     */
    [[nodiscard]] int Read(char* buffer, int size);

    /**
     * Writes once. After a short write it does not send the rest, because a driver takes each write
     * as a whole message.
     *
     * @param size  Bytes of `data`; negative is refused with EINVAL.
     * @return Bytes written, which may be fewer than `size`, or -1 with errno set.
     */
    [[nodiscard]] int Write(const char* data, int size);

    /** Closes the descriptor; does nothing when there is none. The file can be opened again. */
    void Close();

    /** The descriptor, or -1 while closed. This object still owns it. */
    int fd() const { return fd_; }

    /** The path of the file; only its first bytes if it is too long. */
    const char* path() const { return path_.data(); }

  private:
    std::array<char, kPathBytes> path_;
    bool path_fits_;
    const int flags_;
    int fd_ = -1;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils
