#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"

namespace virtual_dsp {

namespace wire = ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;

inline constexpr int kMicrophones = 2;
inline constexpr uint64_t kHistoryFrames = uint64_t{8} * wire::kSampleRateHz;

// The latest 8000 ms of both microphones. Frames are numbered from the first one that ever came,
// 0, and keep their number. Not thread-safe.
class MicrophoneHistory {
  public:
    MicrophoneHistory() : ring_(kHistoryFrames * kMicrophones) {}

    void Append(std::span<const int16_t> interleaved);
    // Counts frames that nobody kept, and forgets all before them.
    void Skip(uint64_t frames);

    // The frames kept: [oldest(), end()).
    uint64_t oldest() const { return oldest_; }
    uint64_t end() const { return end_; }

    // Copies interleaved frames from frame `first` on; all of them must be kept.
    void Copy(uint64_t first, std::span<int16_t> interleaved) const;
    // One sample of a kept frame.
    int16_t Sample(uint64_t frame, int channel) const {
        return ring_[frame % kHistoryFrames * kMicrophones + static_cast<size_t>(channel)];
    }

  private:
    std::vector<int16_t> ring_;
    uint64_t oldest_ = 0;
    uint64_t end_ = 0;
};

// When each frame was heard. The source says so for the last frame of each block; the frames
// between are spread evenly, whatever pace the source keeps. Not thread-safe.
class FrameTimes {
  public:
    // Takes the next `frames` (at least 1) frames. Returns how long the microphones were silent
    // before them: a source that pauses for more than 100 ms has stopped and begun anew.
    int64_t AddBlock(uint64_t frames, int64_t last_frame_ns);
    // The boot time of a frame. One beyond the ends is dated as the nearest frame known.
    int64_t At(uint64_t frame) const;

  private:
    struct Block {
        uint64_t end;  // Frame after its last.
        uint64_t frames;
        int64_t start_ns;  // Of the frame before its first.
        int64_t last_ns;   // Of its last.
    };
    std::deque<Block> blocks_;
};

}  // namespace virtual_dsp
