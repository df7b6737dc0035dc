#pragma once

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

// How long 1024 frames last at 16 kHz: the pace that a capture stream expects its buffers at.
inline constexpr std::chrono::milliseconds kBufferDuration{64};

/**
 * What a capture stream gets in place of a read that failed: a full buffer of silence, not faster
 * than audio would come. A read that timed out has already taken twice that time.
 *
 * @param result  The failed read's negative errno.
 * @param size    Bytes of `buffer`, all of them set to 0.
 * @return `size`, as if all had been read. Blocks for 64 ms unless the read timed out.
 */
inline int DeliverSilence(int result, char* buffer, unsigned int size) {
    std::memset(buffer, 0, size);
    if (result != -ETIMEDOUT) std::this_thread::sleep_for(kBufferDuration);
    return static_cast<int>(size);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
