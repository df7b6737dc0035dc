#include "tools/audio/sound.h"

#include <algorithm>
#include <cmath>

namespace sthal::audio {

Sound Sound::Channel(int channel) const {
    const auto step = static_cast<size_t>(channels);
    const auto first = static_cast<size_t>(std::clamp(channel, 0, channels - 1));
    Sound mono{.samples = std::vector<int16_t>(frames())};
    for (size_t i = 0; i < mono.samples.size(); ++i) mono.samples[i] = samples[i * step + first];
    return mono;
}

Sound Sound::Stereo() const {
    if (channels == 2) return *this;
    Sound stereo{.channels = 2};
    for (const int16_t sample : samples) stereo.samples.insert(stereo.samples.end(), 2, sample);
    return stereo;
}

int16_t ToSample(double value) {
    return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0, 32767.0)));
}

}  // namespace sthal::audio
