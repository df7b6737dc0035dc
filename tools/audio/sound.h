#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What all audio of the command-line tool is made of.
namespace sthal::audio {

// The rate at which the DSP listens; every Sound has it.
inline constexpr int kSampleRateHz = 16000;

// Interleaved 16-bit PCM at kSampleRateHz.
struct Sound {
    int channels = 1;  // 1 or 2.
    std::vector<int16_t> samples{};

    size_t frames() const { return samples.size() / static_cast<size_t>(channels); }
    // One channel (counted from 0); the last one there is when `channel` is beyond it.
    Sound Channel(int channel) const;
    // Both channels alike if it was one, itself if it was two.
    Sound Stereo() const;
};

// Frames [begin, end) of a Sound.
struct FrameRange {
    size_t begin = 0;
    size_t end = 0;
};

constexpr double Seconds(size_t frames) {
    return static_cast<double>(frames) / kSampleRateHz;
}

// The sample nearest to `value` (in steps of 16 bits); what is beyond full scale is clipped.
int16_t ToSample(double value);

// A value, or the reason why there is none: a sentence for the person at the terminal, which says
// what is wrong and what can be done.
template <typename T>
struct [[nodiscard]] Result {
    std::optional<T> value;
    std::string error;

    static Result Error(std::string text) { return {std::nullopt, std::move(text)}; }
    static Result Of(T value) { return {std::move(value), {}}; }

    explicit operator bool() const { return value.has_value(); }
    const T& operator*() const { return *value; }
    const T* operator->() const { return &*value; }
};

}  // namespace sthal::audio
