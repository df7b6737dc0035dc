#include "host/virtual_dsp/dsp/detector.h"

#include <algorithm>

namespace virtual_dsp {
namespace {

constexpr size_t kBlock = Correlator::kBlock;
constexpr uint64_t kLookAheadFrames = 320;  // 20 ms.

}  // namespace

Detector::Detector(std::span<const int16_t> pcm_template, float threshold, uint64_t first_frame)
    : template_frames_(static_cast<uint32_t>(pcm_template.size())),
      threshold_(threshold),
      correlator_(pcm_template),
      next_frame_(first_frame) {
    block_.reserve(kBlock);
}

std::optional<Detection> Detector::Hear(std::span<const int16_t> audio) {
    while (!audio.empty()) {
        const size_t count = std::min(audio.size(), kBlock - block_.size());
        block_.insert(block_.end(), audio.begin(), audio.begin() + static_cast<ptrdiff_t>(count));
        audio = audio.subspan(count);
        if (block_.size() < kBlock) break;
        const std::optional<Detection> detection = HearBlock();
        block_.clear();
        if (detection) return detection;
    }
    return std::nullopt;
}

std::optional<Detection> Detector::HearBlock() {
    for (const float score : correlator_.Hear(block_)) {
        const uint64_t frame = next_frame_++;
        if (score >= threshold_ && (!peak_ || score > peak_->score)) {
            peak_ = Detection{frame, template_frames_, score};
        } else if (peak_ && frame - peak_->last_frame >= kLookAheadFrames) {
            return peak_;
        }
    }
    return std::nullopt;
}

}  // namespace virtual_dsp
