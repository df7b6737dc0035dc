#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace virtual_dsp {

// One block's spectrum, real and imaginary parts apart so that loops over them vectorise.
struct Spectrum {
    std::vector<float> re;
    std::vector<float> im;
};

// The normalised cross-correlation (Pearson's, so neither level nor offset matters) of a pattern
// with the audio that ends at each frame.
//
// It is a convolution with the reversed pattern, cut into as many partitions as it has blocks: one
// forward and one inverse transform per block, and a product per partition. Not thread-safe;
// different correlators are independent.
class Correlator {
  public:
    static constexpr size_t kBlock = 320;  // Frames; 20 ms.

    // The pattern has at least one frame. Nothing correlates with a constant one.
    explicit Correlator(std::span<const int16_t> pattern);

    // Takes the next kBlock frames and returns the score at each of them, 0..1; -1 where fewer
    // frames were heard than the pattern has, and for silence. Valid until the next call.
    std::span<const float> Hear(std::span<const int16_t> block);

  private:
    float Score(int16_t sample, float product);

    const size_t pattern_frames_;
    float pattern_norm_ = 0;
    std::vector<Spectrum> pattern_;  // Per partition of the reversed pattern.

    std::vector<float> window_;    // The block before the latest and the latest itself.
    std::vector<Spectrum> heard_;  // Of the latest windows, as many as partitions; a ring.
    size_t newest_ = 0;            // Index in heard_.
    std::vector<float> products_;  // For the frames of the latest block; not normalised.
    std::vector<float> scores_;

    // Exact sums over the audio below the pattern, and the audio itself; a ring.
    std::vector<int16_t> below_;
    int64_t sum_ = 0;
    int64_t sum_of_squares_ = 0;
    uint64_t heard_frames_ = 0;
};

}  // namespace virtual_dsp
