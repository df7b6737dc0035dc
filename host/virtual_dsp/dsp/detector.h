#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace virtual_dsp {

// One block's spectrum, real and imaginary parts apart so that loops over them vectorise.
struct Spectrum {
    std::vector<float> re;
    std::vector<float> im;
};

struct Detection {
    uint64_t last_frame = 0;       // The frame at which the template ends: the detection's instant.
    uint32_t template_frames = 0;  // It begins that many frames earlier, less one.
    float score = 0;
};

// Listens to one microphone for one template: the normalised cross-correlation (Pearson's, so
// neither level nor offset matters) of the template with the audio that ends at each frame.
//
// The detection is the correlation's peak, a score of the threshold or more that nothing within
// the following 20 ms exceeds. Shorter than that, voiced speech would fire one pitch period early.
// Work is done in blocks of 20 ms counted from the first frame, so the outcome does not depend on
// how the audio is cut into calls; it comes at most 40 ms after the peak.
//
// The correlation is a convolution with the reversed template, cut into as many partitions as it
// has blocks: one forward and one inverse transform per block, and a product per partition. Not
// thread-safe; different detectors are independent.
class Detector {
  public:
    static constexpr size_t kBlock = 320;

    // `first_frame` is the number of the first frame that Hear() will be given. Only audio from
    // there on counts, so nothing heard before can be detected. The template must not be constant.
    Detector(std::span<const int16_t> pcm_template, float threshold, uint64_t first_frame);

    // Takes the next frames; returns the first detection in them, and is then of no more use.
    std::optional<Detection> Hear(std::span<const int16_t> audio);

  private:
    std::optional<Detection> HearBlock();
    void Correlate();
    float ScoreNext(size_t index);

    const size_t template_frames_;
    const float threshold_;
    const uint64_t first_frame_;
    float template_norm_ = 0;
    std::vector<Spectrum> template_;  // Per partition of the reversed template.

    std::vector<int16_t> block_;   // The block that is being filled.
    std::vector<float> window_;    // The block before it and itself, as the transform takes them.
    std::vector<Spectrum> heard_;  // Of the latest windows, as many as partitions; a ring.
    size_t newest_ = 0;            // Index in heard_.
    std::vector<float> correlation_;  // Of the frames of the latest block.

    // Exact sums over the audio below the template, and the audio itself; a ring.
    std::vector<int16_t> below_;
    int64_t sum_ = 0;
    int64_t sum_of_squares_ = 0;

    uint64_t heard_frames_ = 0;
    std::optional<Detection> peak_;
};

}  // namespace virtual_dsp
