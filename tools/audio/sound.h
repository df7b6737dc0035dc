#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sthal::audio {

// The rate at which the DSP listens; every Sound has it.
inline constexpr int kSampleRateHz = 16000;

// Interleaved 16-bit PCM at kSampleRateHz.
struct Sound {
    int channels = 1;  // 1 or 2.
    std::vector<int16_t> samples{};

    size_t frames() const { return samples.size() / static_cast<size_t>(channels); }
    // One channel, counted from 0; the last one if there is no such channel.
    Sound Channel(int channel) const;
    // Two channels; the same in both if there is only one.
    Sound Stereo() const;
};

// Frames [begin, end).
struct FrameRange {
    size_t begin = 0;
    size_t end = 0;
};

constexpr double Seconds(size_t frames) {
    return static_cast<double>(frames) / kSampleRateHz;
}

// The sample nearest to `value`, clipped to 16 bits.
int16_t ToSample(double value);

}  // namespace sthal::audio
