#pragma once

#include <condition_variable>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include "host/virtual_dsp/board/microphone.h"
#include "tools/audio/sound.h"

namespace sthal {

/**
 * The clock that a microphone stamps its blocks with, which remembers the latest stamp: it is how a
 * Playback knows when the DSP was told that a frame was heard.
 */
class MicrophoneClock {
  public:
    int64_t Now();
    int64_t latest_ns() const { return latest_ns_; }

  private:
    std::atomic<int64_t> latest_ns_{0};
};

/** A recording being played into the microphone. Thread-safe. */
class Playback {
  public:
    // `clock` is the microphone's. A recording of one channel is heard by both microphones.
    static std::shared_ptr<Playback> Begin(virtual_dsp::Microphone& microphone,
                                           std::shared_ptr<MicrophoneClock> clock,
                                           const audio::Sound& recording);

    bool IsFinished() const;
    size_t frames() const { return frames_; }
    // Frames heard so far.
    size_t heard_frames() const;
    // The microphone's frame that the recording begins with; counts once something was heard.
    uint64_t first_frame() const;
    // The boot time at which a frame of the recording was heard; 0 while it has not been.
    int64_t HeardAtNs(size_t frame) const;

  private:
    struct Block {
        size_t end;  // Frames of the recording heard with it.
        int64_t start_ns;
        int64_t end_ns;
    };

    Playback(std::shared_ptr<MicrophoneClock> clock, size_t frames);
    void Heard(size_t frames, uint64_t microphone_position);

    const std::shared_ptr<MicrophoneClock> clock_;
    const size_t frames_;
    std::shared_future<bool> finished_;

    mutable std::mutex lock_;
    std::vector<Block> blocks_;  // Under lock_, as all below.
    uint64_t first_frame_ = 0;
};

}  // namespace sthal
