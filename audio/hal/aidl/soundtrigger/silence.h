#pragma once

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

// How long 1024 frames last at 16 kHz: the pace that a capture stream expects its buffers at.
inline constexpr std::chrono::milliseconds kBufferDuration{64};

/**
 * Fills `size` bytes of `buffer` in place of a read that failed with `result`, a negative errno.
 * Returns `size`, as if that had been read. Blocks for 64 ms, so that silence comes no faster than
 * audio; a read that timed out has taken that time already.
 */
inline int DeliverSilence(int result, char* buffer, unsigned int size) {
    std::memset(buffer, 0, size);
    if (result != -ETIMEDOUT) std::this_thread::sleep_for(kBufferDuration);
    return static_cast<int>(size);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
