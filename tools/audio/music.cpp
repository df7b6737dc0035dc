#include "tools/audio/music.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

#include "tools/audio/random.h"

namespace sthal::audio {
namespace {

constexpr size_t kStepFrames = kSampleRateHz / 4;  // An eighth note at 120 beats a minute.
constexpr size_t kStepsPerBar = 8;

// A triad, as MIDI note numbers.
using Chord = std::array<int, 3>;
constexpr std::array<Chord, 6> kChords = {Chord{60, 64, 67}, Chord{57, 60, 64}, Chord{65, 69, 72},
                                          Chord{55, 59, 62}, Chord{62, 65, 69}, Chord{64, 67, 71}};

double FrequencyHz(int note) {
    return 440 * std::pow(2, (note - 69) / 12.0);
}

// Adds a plucked note: four harmonics, the higher the weaker and the shorter.
void Pluck(int note, double level, double decay_s, std::span<double> mix) {
    for (int harmonic = 1; harmonic <= 4; ++harmonic) {
        const double step = 2 * std::numbers::pi * FrequencyHz(note) * harmonic / kSampleRateHz;
        const double decay = std::exp(-harmonic / (decay_s * kSampleRateHz));
        double amplitude = level / (harmonic * harmonic);
        for (size_t i = 0; i < mix.size() && amplitude > 1e-4; ++i) {
            constexpr double kAttackFrames = 32;  // Else every note begins with a click.
            const double attack = std::min(1.0, static_cast<double>(i) / kAttackFrames);
            mix[i] += attack * amplitude * std::sin(step * static_cast<double>(i));
            amplitude *= decay;
        }
    }
}

}  // namespace

Sound MakeMusic(double seconds, uint64_t seed) {
    const double length = std::clamp(seconds, 0.0, 1800.0) * kSampleRateHz;
    std::vector<double> mix(static_cast<size_t>(std::llround(length)));
    Random random(seed);
    Chord chord{};
    for (size_t step = 0; step * kStepFrames < mix.size(); ++step) {
        const std::span<double> rest = std::span(mix).subspan(step * kStepFrames);
        if (step % kStepsPerBar == 0) {
            chord = kChords[random.Next() % kChords.size()];
            Pluck(chord[0] - 24, 1, 0.8, rest);
            for (const int note : chord) Pluck(note, 0.4, 0.6, rest);
        }
        const int octave = 12 * static_cast<int>(random.Next() % 2);
        Pluck(chord[random.Next() % chord.size()] + octave, 0.7, 0.25, rest);
    }

    double peak = 0;
    for (const double sample : mix) peak = std::max(peak, std::abs(sample));
    const double scale = peak > 0 ? 0.5 * 32767 / peak : 0;
    Sound music;
    music.samples.reserve(mix.size());
    for (const double sample : mix) music.samples.push_back(ToSample(sample * scale));
    return music;
}

}  // namespace sthal::audio
