#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/virtual_dsp/dsp/dsp.h"

namespace virtual_dsp {

struct MicrophoneOptions {
    // What the DSP hears between one play and the next. This never comes as fast as possible,
    // because the DSP would not have a free moment.
    enum class Idle { kNothing, kSilence, kNoise };
    static constexpr double kAsFastAsPossible = 0.0;

    double speed = 1.0;  // Of real time; 8.0 plays a second in 125 ms.
    Idle idle = Idle::kNothing;
    int16_t noise_amplitude = 32;
    uint32_t noise_seed = 1;
    // The boot time for the blocks' timestamps, in nanoseconds; CLOCK_BOOTTIME when empty.
    std::function<int64_t()> boottime_ns = {};
};

// The room that the DSP listens to: plays audio into it, block after block, at the pace of a real
// microphone or faster. The DSP hears a block when the block's last frame is due, by a clock that
// does not drift. A microphone that is late catches up.
//
// Thread-safe. Feeds the DSP on a thread of its own, from the constructor to the destructor.
class Microphone {
  public:
    static constexpr size_t kBlockFrames = wire::kSampleRateHz / 100;
    // How much of the audio that was heard is kept: 10 minutes.
    static constexpr size_t kKeptFrames = size_t{600} * wire::kSampleRateHz;

    // Called after each block, on the microphone's thread, with the frames of the play heard so
    // far.
    using Progress = std::function<void(size_t frames)>;

    explicit Microphone(Dsp& dsp, MicrophoneOptions options = {});
    // Stops the play that is running.
    ~Microphone();
    Microphone(const Microphone&) = delete;
    Microphone& operator=(const Microphone&) = delete;

    // Plays `samples` (two interleaved channels, whole frames; an odd last sample is dropped) after
    // everything that was asked for earlier, without a gap. The future becomes true when the DSP
    // has heard all of it, and false when the play was stopped before that.
    std::shared_future<bool> Play(std::vector<int16_t> samples, Progress progress = {})
            EXCLUDES(lock_);
    // Stops all plays. The DSP hears nothing of them after this has returned. If a Progress calls
    // this, the block of that Progress is the last one.
    void Stop() EXCLUDES(lock_);

    // Frames heard since the beginning, whatever their source.
    uint64_t Position() const EXCLUDES(lock_);
    // Up to `count` of the frames heard from frame `first` on, counted as Position() does; empty
    // when they are no longer there, or not yet. A block is there before the DSP hears it.
    std::vector<int16_t> Heard(uint64_t first, size_t count) const EXCLUDES(lock_);

  private:
    struct Playback {
        std::vector<int16_t> samples;
        Progress progress;
        std::promise<bool> finished;
        size_t next_frame = 0;

        size_t frames() const { return samples.size() / wire::kHotwordChannels; }
    };

    struct Block {
        std::vector<int16_t> samples;
        std::shared_ptr<Playback> playback;  // That it is part of; null for what is idly heard.
        size_t played = 0;                   // Frames of the playback, with this block.
    };

    void Run() EXCLUDES(lock_);
    // Waits until a block is due. Returns false when the microphone is to stop.
    bool WaitForBlock() REQUIRES(lock_);
    std::chrono::steady_clock::time_point NextDue() REQUIRES(lock_);
    Block TakeBlock() REQUIRES(lock_);
    void EndBlock(const Block& block) REQUIRES(lock_);
    bool HasAudio() const REQUIRES(lock_);
    std::vector<int16_t> NextSamples() REQUIRES(lock_);
    void Record(std::span<const int16_t> samples) REQUIRES(lock_);

    Dsp& dsp_;
    const MicrophoneOptions options_;
    std::minstd_rand noise_;  // The microphone's thread only.

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::shared_ptr<Playback>> queue_ GUARDED_BY(lock_);
    bool stopping_ GUARDED_BY(lock_) = false;
    bool hearing_ GUARDED_BY(lock_) = false;  // The DSP is being handed a block.
    // The pace: when the first frame was due, and how many have been since. Empty while nothing
    // plays.
    std::optional<std::chrono::steady_clock::time_point> pace_start_ GUARDED_BY(lock_);
    uint64_t paced_frames_ GUARDED_BY(lock_) = 0;
    uint64_t position_ GUARDED_BY(lock_) = 0;
    std::deque<int16_t> heard_ GUARDED_BY(lock_);
    uint64_t heard_first_ GUARDED_BY(lock_) = 0;  // The frame that heard_ begins with.

    std::thread thread_;  // Last: it uses all of the above.
};

}  // namespace virtual_dsp
