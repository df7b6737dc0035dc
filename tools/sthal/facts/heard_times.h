#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sthal {

/** When the DSP was told of which frame of a recording. Times are boot times in nanoseconds. */
class HeardTimes {
  public:
    // The microphones heard the recording up to frame `end`, the last one at `end_ns`.
    void Add(size_t end, int64_t end_ns);

    // Frames heard so far.
    size_t frames() const { return blocks_.empty() ? 0 : blocks_.back().end; }
    // When a frame was heard; 0 while it has not been.
    int64_t At(size_t frame) const;
    // The frame that was heard at a time; frames() afterwards.
    size_t FrameAt(int64_t ns) const;

  private:
    struct Block {
        size_t end;
        int64_t begin_ns;
        int64_t end_ns;
    };
    std::vector<Block> blocks_;
};

}  // namespace sthal
