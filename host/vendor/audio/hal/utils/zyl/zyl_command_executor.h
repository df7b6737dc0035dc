#pragma once

#include <chrono>
#include <memory>

#include "audio/hal/utils/file/file.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::zyl {

/**
 * Exchanges one command at a time with the DSP over its command device.
 *
 * The device takes a command by one write, or refuses it with an errno. It becomes readable when
 * the answer is there; a read then delivers the reply, which has the length of its command and
 * begins with the same header, or fails with the errno that the DSP refused the command with.
 *
 * Not thread-safe: its owner serialises Open, Execute and Close.
 */
class ZylCommandExecutor {
  public:
    /**
     * How long Execute waits for the answer. The DSP answers within a few milliseconds, also while
     * it loads a model; after this long it has crashed, and its restart is under way.
     */
    static constexpr std::chrono::milliseconds kReplyTimeout{200};

    /**
     * How long it waits in all for a DSP that answers nothing any more, since an owner with a
     * thousand commands to send must not wait out a thousand time-outs. When that is used up, only
     * answers that are there at once count, until one comes, the device refuses a command, or no
     * command has been sent for kSilencePause. That is longer than a download takes from one
     * command to the next, and shorter than a DSP takes to come back. For an owner that asks again
     * and again one more time-out is waited out after each kSilentRow.
     */
    static constexpr std::chrono::milliseconds kSilenceLimit{500};
    static constexpr std::chrono::milliseconds kSilencePause{100};
    static constexpr std::chrono::milliseconds kSilentRow{1000};

    /** Longest command, in bytes. Commands are held on the stack, nothing is allocated. */
    static constexpr int kMaxCommandBytes = 256;

    /** @param device  The command device, to be opened for reading and writing, non-blocking. */
    explicit ZylCommandExecutor(std::unique_ptr<File> device);

    /** Opens the device. @return 0 or a negative errno; -ENODEV without a device. */
    [[nodiscard]] int Open();

    /**
     * Sends a command and waits for its reply, up to kReplyTimeout (see also kSilenceLimit).
     *
     * A reply with another id or sequence number is a late one to an earlier command; it is dropped
     * and the wait goes on within the same time.
     *
     * @param command  The whole command, header included, with the `size` below in its header. The
     *                 reply is written over it on success; on failure it is left as it was.
     * @param size     Bytes of the command, from the header's 8 to kMaxCommandBytes.
     * @return 0, or a negative errno: -EINVAL no whole header or a size that is not the header's,
     *         -EMSGSIZE too long, -ENODEV no device, -EBADF not open, -ETIMEDOUT no reply in time,
     *         -EIO a command that the device took only a part of, or a torn reply; any other is
     * what the device or the DSP refused the command with.
     */
    [[nodiscard]] int Execute(char* command, int size);

    /** Closes the device. */
    void Close();

  private:
    int AwaitReply(char* command, int size);
    int ReadReply(char* command, int size, std::chrono::milliseconds patience);
    std::chrono::milliseconds Patience(std::chrono::steady_clock::time_point now);

    const std::unique_ptr<File> device_;
    // How long the DSP has been waited for in vain since it last answered, until when, and when the
    // latest command went unanswered.
    std::chrono::milliseconds silence_{0};
    std::chrono::steady_clock::time_point waited_until_;
    std::chrono::steady_clock::time_point unanswered_at_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::zyl
