#include "tools/sthal/facts/heard_times.h"

#include <algorithm>

#include "tools/audio/sound.h"

namespace sthal {

void HeardTimes::Add(size_t end, int64_t end_ns) {
    // The first block is taken as long as it is in real time: nothing tells when the one before it
    // was heard, and no hotword ends in it.
    const int64_t begin_ns = blocks_.empty() ? end_ns - static_cast<int64_t>(end) * 1'000'000'000 /
                                                                audio::kSampleRateHz
                                             : blocks_.back().end_ns;
    blocks_.push_back({end, begin_ns, end_ns});
}

int64_t HeardTimes::At(size_t frame) const {
    const auto block = std::ranges::upper_bound(blocks_, frame, {}, &Block::end);
    if (block == blocks_.end()) return 0;
    const size_t begin = block == blocks_.begin() ? 0 : std::prev(block)->end;
    const auto nth = static_cast<int64_t>(frame - begin + 1);
    return block->begin_ns +
           (block->end_ns - block->begin_ns) * nth / static_cast<int64_t>(block->end - begin);
}

size_t HeardTimes::FrameAt(int64_t ns) const {
    const auto next = std::ranges::upper_bound(blocks_, ns, {}, &Block::end_ns);
    return next == blocks_.begin() ? 0 : std::prev(next)->end;
}

}  // namespace sthal
