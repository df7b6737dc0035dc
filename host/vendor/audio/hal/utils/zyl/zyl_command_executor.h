#pragma once

#include <chrono>
#include <memory>

#include "audio/hal/utils/file/file.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::zyl {

/**
 * Exchanges one command at a time with the DSP over its command device.
 *
 * The device takes a command in one write, or refuses it with an errno. It becomes readable when
 * the answer is there. A read then delivers the reply, or fails with the errno with which the DSP
 * refused the command. A reply has the length of its command and begins with the same header.
 *
 * Not thread-safe: its owner serialises Open, Execute and Close.
 */
class ZylCommandExecutor {
  public:
    /**
     * How long Execute waits for the answer. The DSP answers within a few milliseconds, even while
     * it loads a model. If it needs longer than this, it has crashed, and its restart is under way.
     */
    static constexpr std::chrono::milliseconds kReplyTimeout{200};

    /**
     * How long it waits in all for a DSP that has stopped answering, because an owner with a
     * thousand commands to send must not wait for a thousand time-outs. When this time is used up,
     * Execute only takes answers that are there at once, until one comes, the device refuses a
     * command, or no command has been sent for kSilencePause. The pause is longer than the time
     * between two commands of a download, and shorter than the restart of a DSP. For an owner that
     * sends commands again and again, Execute waits for one more time-out after each kSilentRow.
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
     * A reply with another id or sequence number is a late reply to an earlier command. Execute
     * drops it and goes on waiting within the same time.
     *
     * @param command  The whole command, header included, with the `size` below in its header. On
     *                 success the reply overwrites it; on failure it is unchanged.
     * @param size     Bytes of the command, from the header's 8 to kMaxCommandBytes.
     * @return 0, or a negative errno: -EINVAL no whole header, or a size that differs from the
     *         header's; -EMSGSIZE too long; -ENODEV no device; -EBADF not open; -ETIMEDOUT no reply
     *         in time; -EIO the device took only a part of the command, or the reply is torn. Any
     *         other is the errno with which the device or the DSP refused the command.
     */
    [[nodiscard]] int Execute(char* command, int size);

    /** Closes the device. */
    void Close();

  private:
    int AwaitReply(char* command, int size);
    int ReadReply(char* command, int size, std::chrono::milliseconds patience);
    std::chrono::milliseconds Patience(std::chrono::steady_clock::time_point now);

    const std::unique_ptr<File> device_;
    // How long Execute has waited in vain since the DSP last answered, the end of its latest such
    // wait, and the time at which the latest command went unanswered.
    std::chrono::milliseconds silence_{0};
    std::chrono::steady_clock::time_point waited_until_;
    std::chrono::steady_clock::time_point unanswered_at_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::zyl
