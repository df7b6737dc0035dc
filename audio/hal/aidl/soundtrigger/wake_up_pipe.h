#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * Wakes a thread that waits for the read end in select(): the read end is readable while a message
 * is in the pipe. Neither end blocks. Owns both; the owner of the pipe guards all of it.
 */
class WakeUpPipe {
  public:
    /** Bytes of one message. Its value says nothing, its arrival everything. */
    static constexpr ssize_t kMessageBytes = 4;

    /** False where the system has no pipe left to give. */
    [[nodiscard]] bool Open();
    void Close();

    bool is_open() const { return write_end_.ok(); }
    int read_end() const { return read_end_.get(); }  // -1 while closed.

    /** Sends a message. Returns 0 or a positive errno; EAGAIN, a full pipe, wakes the reader, too.
     */
    [[nodiscard]] int Wake();

    /** Removes a message. Returns its size in bytes; 0 or less when there is none. */
    [[nodiscard]] ssize_t TakeMessage();

  private:
    ::android::base::unique_fd read_end_;
    ::android::base::unique_fd write_end_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
