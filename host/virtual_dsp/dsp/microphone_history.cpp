#include "host/virtual_dsp/dsp/microphone_history.h"

#include <algorithm>

namespace virtual_dsp {

void MicrophoneHistory::Append(std::span<const int16_t> interleaved) {
    for (size_t done = 0; done < interleaved.size();) {
        const size_t at = end_ % kHistoryFrames * kMicrophones;
        const size_t count = std::min(interleaved.size() - done, ring_.size() - at);
        std::copy_n(interleaved.begin() + static_cast<ptrdiff_t>(done), count,
                    ring_.begin() + static_cast<ptrdiff_t>(at));
        done += count;
        end_ += count / kMicrophones;
    }
    if (end_ - oldest_ > kHistoryFrames) oldest_ = end_ - kHistoryFrames;
}

void MicrophoneHistory::Skip(uint64_t frames) {
    end_ += frames;
    oldest_ = end_;
}

void MicrophoneHistory::Copy(uint64_t first, std::span<int16_t> interleaved) const {
    for (size_t done = 0; done < interleaved.size();) {
        const size_t at = (first + done / kMicrophones) % kHistoryFrames * kMicrophones;
        const size_t count = std::min(interleaved.size() - done, ring_.size() - at);
        std::copy_n(ring_.begin() + static_cast<ptrdiff_t>(at), count,
                    interleaved.begin() + static_cast<ptrdiff_t>(done));
        done += count;
    }
}

int64_t FrameTimes::AddBlock(uint64_t frames, int64_t last_frame_ns) {
    constexpr int64_t kPauseNs = 100'000'000;
    const auto nominal_ns = static_cast<int64_t>(frames * 1'000'000'000 / wire::kSampleRateHz);
    if (blocks_.empty()) {
        blocks_.push_back({frames, frames, last_frame_ns - nominal_ns, last_frame_ns});
        return 0;
    }
    const Block& before = blocks_.back();
    Block block{before.end + frames, frames, before.last_ns, last_frame_ns};
    block.last_ns = std::max(block.last_ns, block.start_ns);
    const int64_t pause_ns = block.last_ns - block.start_ns - nominal_ns;
    if (pause_ns > kPauseNs) block.start_ns = block.last_ns - nominal_ns;
    blocks_.push_back(block);
    while (blocks_.front().end + kHistoryFrames < block.end) blocks_.pop_front();
    return pause_ns > kPauseNs ? pause_ns : 0;
}

int64_t FrameTimes::At(uint64_t frame) const {
    if (blocks_.empty()) return 0;
    auto block = std::ranges::upper_bound(blocks_, frame, {}, &Block::end);
    if (block == blocks_.end()) return blocks_.back().last_ns;
    const uint64_t first = block->end - block->frames;
    if (frame < first) return block->start_ns;
    const auto nth = static_cast<int64_t>(frame - first + 1);
    return block->start_ns +
           (block->last_ns - block->start_ns) * nth / static_cast<int64_t>(block->frames);
}

}  // namespace virtual_dsp
