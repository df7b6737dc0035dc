#pragma once

#include <android-base/thread_annotations.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>

#include "tools/sthal/facts/heard_times.h"

namespace sthal {

/** A recording that is being played into the microphones. Thread-safe. */
class PlayingRecording {
  public:
    explicit PlayingRecording(size_t frames) : frames_(frames) {}

    // --- for who plays it ---
    // Once, before others see it. The future is ready when all was heard, or it was broken off.
    void Begin(std::shared_future<bool> finished) { finished_ = std::move(finished); }
    // The microphones heard it up to frame `end`; it began with their frame `first_frame`.
    void AddHeard(uint64_t first_frame, size_t end, int64_t end_ns) EXCLUDES(lock_);

    // --- for who waits for it ---
    bool IsFinished() const;
    size_t frames() const { return frames_; }
    size_t heard_frames() const EXCLUDES(lock_);
    // The microphones' frame that it begins with; counts once something was heard.
    uint64_t first_frame() const EXCLUDES(lock_);
    // The boot time at which a frame was heard; 0 while it has not been.
    int64_t HeardAtNs(size_t frame) const EXCLUDES(lock_);

  private:
    const size_t frames_;
    std::shared_future<bool> finished_;
    mutable std::mutex lock_;
    HeardTimes heard_ GUARDED_BY(lock_);
    uint64_t first_frame_ GUARDED_BY(lock_) = 0;
};

}  // namespace sthal
