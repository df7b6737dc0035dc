#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include "host/virtual_dsp/dsp/dsp.h"

namespace virtual_dsp {

struct MicrophoneOptions {
    // What is heard between one play and the next. Never fed as fast as possible: that would not
    // leave the DSP a free moment.
    enum class Idle { kNothing, kSilence, kNoise };
    static constexpr double kAsFastAsPossible = 0.0;

    double speed = 1.0;  // Of real time; 8.0 plays a second in 125 ms.
    Idle idle = Idle::kNothing;
    int16_t noise_amplitude = 32;
    uint32_t noise_seed = 1;
    // The boot time that blocks are stamped with, in nanoseconds; CLOCK_BOOTTIME when empty.
    std::function<int64_t()> boottime_ns = {};
};

// The room that the DSP listens to: plays audio into it, block after block, at the pace of a real
// microphone or faster. A block is heard when its last frame is due, by a clock that does not
// drift. A microphone that was held up catches up.
//
// Thread-safe. Feeds the DSP on a thread of its own, from the constructor to the destructor.
class Microphone {
  public:
    static constexpr size_t kBlockFrames = wire::kSampleRateHz / 100;
    // How much of what was heard is kept: 10 minutes.
    static constexpr size_t kKeptFrames = size_t{600} * wire::kSampleRateHz;

    // Told after each block, on the microphone's thread, how many frames of the play were heard.
    using Progress = std::function<void(size_t frames)>;

    explicit Microphone(Dsp& dsp, MicrophoneOptions options = {});
    // Breaks off what is playing.
    ~Microphone();
    Microphone(const Microphone&) = delete;
    Microphone& operator=(const Microphone&) = delete;

    // Plays `samples` (two interleaved channels, whole frames; an odd last sample is dropped) after
    // everything that was asked for earlier, without a gap. The future becomes true when the DSP
    // has heard all of it, false when that was broken off.
    std::shared_future<bool> Play(std::vector<int16_t> samples, Progress progress = {});
    // Breaks off everything. Nothing of it is heard after this has returned, unless this was called
    // by a Progress, whose block is the last.
    void Stop();

    // Frames heard since the beginning, whatever their source.
    uint64_t Position() const;
    // Up to `count` of the frames heard from frame `first` on, counted as Position() does; empty
    // when they are no longer, or not yet, there. Holds a block before the DSP hears it.
    std::vector<int16_t> Heard(uint64_t first, size_t count) const;

  private:
    struct Playback {
        std::vector<int16_t> samples;
        Progress progress;
        std::promise<bool> finished;
        size_t next_frame = 0;

        size_t frames() const { return samples.size() / wire::kHotwordChannels; }
    };

    bool HasAudio() const;
    bool WaitForBlock(std::unique_lock<std::mutex>& lock);
    std::vector<int16_t> NextBlock();
    void Record(std::span<const int16_t> block);
    void HearBlock(std::unique_lock<std::mutex>& lock);
    void Run();

    Dsp& dsp_;
    const MicrophoneOptions options_;
    std::minstd_rand noise_;  // The microphone's thread only.

    mutable std::mutex lock_;
    std::condition_variable changed_;
    // All below: under lock_.
    std::deque<std::shared_ptr<Playback>> queue_;
    bool stopping_ = false;
    bool hearing_ = false;  // The DSP is being handed a block.
    // Pace: `paced_frames_` are due, or will be, since `pace_start_`.
    bool paced_ = false;
    std::chrono::steady_clock::time_point pace_start_;
    uint64_t paced_frames_ = 0;
    uint64_t position_ = 0;
    std::deque<int16_t> heard_;
    uint64_t heard_first_ = 0;  // The frame that heard_ begins with.

    std::thread thread_;  // Last: it uses all of the above.
};

}  // namespace virtual_dsp
