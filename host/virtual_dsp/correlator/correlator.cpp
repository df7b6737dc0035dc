#include "host/virtual_dsp/correlator/correlator.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>

namespace virtual_dsp {
namespace {

constexpr size_t kBlock = Correlator::kBlock;
constexpr size_t kWindow = 2 * kBlock;
constexpr size_t kBins = kWindow / 2 + 1;
// Audio quieter than this (root mean square, in steps of 16 bits) is silence. Below it the
// transform's rounding, relative to what is loud next to the window, could pass for correlation.
constexpr double kSilenceRms = 4;

struct FftwFree {
    void operator()(void* memory) const { fftwf_free(memory); }
};
template <typename T>
using Aligned = std::unique_ptr<T[], FftwFree>;

template <typename T>
Aligned<T> Allocate(size_t count) {
    return Aligned<T>(static_cast<T*>(fftwf_malloc(count * sizeof(T))));
}

// The real transform of kWindow samples and its inverse. The plans are made once for the whole
// process (FFTW's planner is not thread-safe; executing a plan is) and by estimate, since a
// measured plan may differ, and with it the rounding, from run to run. The buffers are a
// thread's own.
class Transform {
  public:
    static Transform& OfThisThread() {
        thread_local Transform transform;
        return transform;
    }

    void Forward(std::span<const float> samples, Spectrum* spectrum) {
        std::ranges::copy(samples, samples_.get());
        fftwf_execute_dft_r2c(plans_.forward, samples_.get(), bins_.get());
        for (size_t i = 0; i < kBins; ++i) {
            spectrum->re[i] = bins_[i][0];
            spectrum->im[i] = bins_[i][1];
        }
    }

    // Leaves out the first half of the result, where the window's wrap-around lies.
    void InverseSecondHalf(const Spectrum& spectrum, std::span<float> samples) {
        for (size_t i = 0; i < kBins; ++i) {
            bins_[i][0] = spectrum.re[i];
            bins_[i][1] = spectrum.im[i];
        }
        fftwf_execute_dft_c2r(plans_.inverse, bins_.get(), samples_.get());
        for (size_t i = 0; i < samples.size(); ++i) {
            samples[i] = samples_[kWindow - samples.size() + i] / float{kWindow};
        }
    }

  private:
    struct Plans {
        Plans() {
            const auto samples = Allocate<float>(kWindow);
            const auto bins = Allocate<fftwf_complex>(kBins);
            forward = fftwf_plan_dft_r2c_1d(kWindow, samples.get(), bins.get(), FFTW_ESTIMATE);
            inverse = fftwf_plan_dft_c2r_1d(kWindow, bins.get(), samples.get(), FFTW_ESTIMATE);
        }
        fftwf_plan forward;
        fftwf_plan inverse;
    };

    static const Plans& SharedPlans() {
        static const Plans plans;
        return plans;
    }

    const Plans& plans_ = SharedPlans();
    Aligned<float> samples_ = Allocate<float>(kWindow);
    Aligned<fftwf_complex> bins_ = Allocate<fftwf_complex>(kBins);
};

Spectrum Silence() {
    return {std::vector<float>(kBins), std::vector<float>(kBins)};
}

void AddProduct(const Spectrum& a, const Spectrum& b, Spectrum* sum) {
    const float* __restrict a_re = a.re.data();
    const float* __restrict a_im = a.im.data();
    const float* __restrict b_re = b.re.data();
    const float* __restrict b_im = b.im.data();
    float* __restrict re = sum->re.data();
    float* __restrict im = sum->im.data();
    for (size_t i = 0; i < kBins; ++i) {
        re[i] += a_re[i] * b_re[i] - a_im[i] * b_im[i];
        im[i] += a_re[i] * b_im[i] + a_im[i] * b_re[i];
    }
}

}  // namespace

Correlator::Correlator(std::span<const int16_t> pattern)
    : pattern_frames_(pattern.size()),
      window_(kWindow),
      products_(kBlock),
      scores_(kBlock),
      below_(pattern.size()) {
    // Without its mean, the pattern answers to the shape of the audio alone.
    const double mean = std::accumulate(pattern.begin(), pattern.end(), 0.0) /
                        static_cast<double>(pattern_frames_);
    double energy = 0;
    std::vector<float> reversed(pattern_frames_);
    for (size_t i = 0; i < pattern_frames_; ++i) {
        const double value = pattern[pattern_frames_ - 1 - i] - mean;
        reversed[i] = static_cast<float>(value);
        energy += value * value;
    }
    pattern_norm_ = static_cast<float>(std::sqrt(energy));

    for (size_t at = 0; at < pattern_frames_; at += kBlock) {
        const size_t count = std::min(kBlock, pattern_frames_ - at);
        std::vector<float> partition(kWindow);
        std::copy_n(reversed.begin() + static_cast<ptrdiff_t>(at), count, partition.begin());
        Transform::OfThisThread().Forward(partition, &pattern_.emplace_back(Silence()));
    }
    heard_.assign(pattern_.size(), Silence());
}

std::span<const float> Correlator::Hear(std::span<const int16_t> block) {
    std::copy_n(window_.begin() + kBlock, kBlock, window_.begin());
    std::ranges::copy(block, window_.begin() + kBlock);
    newest_ = (newest_ + 1) % heard_.size();
    Transform::OfThisThread().Forward(window_, &heard_[newest_]);

    Spectrum sum = Silence();
    for (size_t partition = 0; partition < pattern_.size(); ++partition) {
        const size_t age = (newest_ + heard_.size() - partition) % heard_.size();
        AddProduct(heard_[age], pattern_[partition], &sum);
    }
    Transform::OfThisThread().InverseSecondHalf(sum, products_);
    for (size_t i = 0; i < kBlock; ++i) scores_[i] = Score(block[i], products_[i]);
    return scores_;
}

float Correlator::Score(int16_t sample, float product) {
    int16_t& oldest = below_[heard_frames_ % pattern_frames_];
    const int64_t out = oldest;
    const int64_t in = sample;
    oldest = sample;
    sum_ += in - out;
    sum_of_squares_ += in * in - out * out;
    if (++heard_frames_ < pattern_frames_ || pattern_norm_ == 0) return -1;

    const auto frames = static_cast<double>(pattern_frames_);
    const auto sum = static_cast<double>(sum_);
    const double energy = static_cast<double>(sum_of_squares_) - sum * sum / frames;
    if (energy < frames * kSilenceRms * kSilenceRms) return -1;
    const double score = product / (pattern_norm_ * std::sqrt(energy));
    return static_cast<float>(std::clamp(score, 0.0, 1.0));
}

}  // namespace virtual_dsp
