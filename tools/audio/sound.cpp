#include "tools/audio/sound.h"

#include <algorithm>
#include <cmath>

namespace sthal::audio {

Sound Sound::Channel(int channel) const {
    const auto step = static_cast<size_t>(channels);
    Sound mono;
    mono.samples.resize(frames());
    const auto first = static_cast<size_t>(std::clamp(channel, 0, channels - 1));
    for (size_t i = 0; i < mono.samples.size(); ++i) mono.samples[i] = samples[i * step + first];
    return mono;
}

Sound Sound::Stereo() const {
    if (channels == 2) return *this;
    Sound stereo{.channels = 2, .samples = std::vector<int16_t>(samples.size() * 2)};
    for (size_t i = 0; i < samples.size(); ++i) {
        stereo.samples[i * 2] = stereo.samples[i * 2 + 1] = samples[i];
    }
    return stereo;
}

int16_t ToSample(double value) {
    return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0, 32767.0)));
}

}  // namespace sthal::audio
