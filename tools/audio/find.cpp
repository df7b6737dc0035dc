#include "tools/audio/find.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

namespace sthal::audio {

namespace {

// The coarse search runs at an eighth of the rate: speech and music are strongest far below 1 kHz,
// and the work falls with the square.
constexpr size_t kDecimation = 8;

std::vector<float> FirstChannel(const Sound& sound) {
    std::vector<float> samples(sound.frames());
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = sound.samples[i * static_cast<size_t>(sound.channels)];
    }
    return samples;
}

std::vector<float> Decimated(const std::vector<float>& samples) {
    std::vector<float> out(samples.size() / kDecimation);
    for (size_t i = 0; i < out.size(); ++i) {
        for (size_t k = 0; k < kDecimation; ++k) out[i] += samples[i * kDecimation + k];
    }
    return out;
}

double Correlation(std::span<const float> audio, std::span<const float> pattern) {
    double product = 0;
    double audio_energy = 0;
    double pattern_energy = 0;
    for (size_t i = 0; i < pattern.size(); ++i) {
        product += double{audio[i]} * pattern[i];
        audio_energy += double{audio[i]} * audio[i];
        pattern_energy += double{pattern[i]} * pattern[i];
    }
    const double norm = std::sqrt(audio_energy * pattern_energy);
    return norm > 0 ? product / norm : 0;
}

struct Best {
    size_t start = 0;
    double correlation = 0;
};

Best Search(std::span<const float> audio, std::span<const float> pattern, size_t first,
            size_t last) {
    Best best{.start = first};
    for (size_t start = first; start <= last; ++start) {
        const double correlation = Correlation(audio.subspan(start, pattern.size()), pattern);
        if (correlation > best.correlation) best = {start, correlation};
    }
    return best;
}

}  // namespace

Match FindTemplate(const Sound& recording, const Sound& pattern) {
    const std::vector<float> audio = FirstChannel(recording);
    const std::vector<float> wanted = FirstChannel(pattern);
    Match match{.range = {0, wanted.size()}};
    if (wanted.size() < kDecimation || audio.size() < wanted.size()) return match;

    const std::vector<float> coarse_audio = Decimated(audio);
    const std::vector<float> coarse_wanted = Decimated(wanted);
    const Best coarse =
            Search(coarse_audio, coarse_wanted, 0, coarse_audio.size() - coarse_wanted.size());
    const size_t centre = coarse.start * kDecimation;
    const size_t last = audio.size() - wanted.size();
    const size_t first = centre > kDecimation ? centre - kDecimation : 0;
    const Best fine =
            Search(audio, wanted, std::min(first, last), std::min(centre + 2 * kDecimation, last));
    match.range = {fine.start, fine.start + wanted.size()};
    match.correlation = fine.correlation;
    return match;
}

}  // namespace sthal::audio
