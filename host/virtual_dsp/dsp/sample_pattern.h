#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

// Test audio that says of itself where it comes from. Every sample is a hash of its channel and
// frame, so a window of a few dozen samples exists only once: a reader can tell which frame of
// which channel it was given, and thus finds every lost, duplicated, stale or swapped frame. It is
// as wide-band as white noise; a stretch of it makes a good detection template.
namespace virtual_dsp {

constexpr int16_t PatternSample(uint64_t frame, int channel) {
    uint64_t x = frame * 2 + static_cast<uint64_t>(channel) + 0x9E3779B97F4A7C15;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return static_cast<int16_t>(static_cast<uint16_t>(x >> 40));
}

// `frames` frames of both channels, interleaved, from frame `first` on.
inline std::vector<int16_t> PatternFrames(uint64_t first, size_t frames) {
    std::vector<int16_t> pcm(frames * 2);
    for (size_t i = 0; i < pcm.size(); ++i) {
        pcm[i] = PatternSample(first + i / 2, static_cast<int>(i % 2));
    }
    return pcm;
}

// One channel of the same.
inline std::vector<int16_t> PatternChannel(uint64_t first, size_t frames, int channel) {
    std::vector<int16_t> pcm(frames);
    for (size_t i = 0; i < frames; ++i) pcm[i] = PatternSample(first + i, channel);
    return pcm;
}

// The frame at which the window `samples` of `channel` begins, looked for in [begin, end). At least
// 4 samples are needed to be sure, 8 after a lossy code. `coded` is what became of a sample on its
// way (a companding round trip, for example); nothing by default. Scans hundreds of millions of
// frames a second for an identity, so a search over minutes of audio costs no more than
// milliseconds.
template <typename Coded = std::identity>
std::optional<uint64_t> FindPattern(std::span<const int16_t> samples, int channel, uint64_t begin,
                                    uint64_t end, Coded coded = {}) {
    for (uint64_t frame = begin; frame < end; ++frame) {
        uint64_t at = frame;
        if (std::ranges::all_of(samples, [&](int16_t sample) {
                return sample == coded(PatternSample(at++, channel));
            })) {
            return frame;
        }
    }
    return std::nullopt;
}

}  // namespace virtual_dsp
