#include "tools/audio/scene.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

#include "tools/audio/random.h"
#include "tools/audio/speech.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;

constexpr double kLongestSceneS = 30 * 60;
constexpr int kMaxDelayFrames = 1000;

double Amplitude(double db) {
    return std::pow(10, db / 20);
}

size_t Frame(double seconds) {
    return static_cast<size_t>(std::llround(seconds * kSampleRateHz));
}

// Noise that falls by about 3 dB an octave, as rooms sound, of the given root mean square. Three
// one-pole low-passes of white noise, an octave or three apart, add up to such a slope.
std::vector<double> RoomNoise(size_t frames, double rms, uint64_t seed) {
    struct Pole {
        double decay, gain;
    };
    constexpr std::array kPoles = {Pole{0.99765, 0.0990460}, Pole{0.96300, 0.2965164},
                                   Pole{0.57000, 1.0526913}};
    constexpr double kWhiteGain = 0.1848;
    Random random(seed);
    std::array<double, kPoles.size()> state{};
    std::vector<double> noise(frames);
    double power = 0;
    for (double& sample : noise) {
        const double white = random.Noise();
        sample = kWhiteGain * white;
        for (size_t i = 0; i < kPoles.size(); ++i) {
            state[i] = kPoles[i].decay * state[i] + kPoles[i].gain * white;
            sample += state[i];
        }
        power += sample * sample;
    }
    const double scale = power > 0 ? rms / std::sqrt(power / static_cast<double>(frames)) : 0;
    for (double& sample : noise) sample *= scale;
    return noise;
}

host::Result<void> Check(std::span<const SceneSound> sounds, const SceneOptions& options) {
    // Written so that what is no number is refused as well.
    const auto within = [](double value, double low, double high) {
        return value >= low && value <= high;
    };
    const auto delay = static_cast<double>(options.second_microphone_delay);
    const std::tuple<const char*, double, const char*, double, double> limits[] = {
            {"a scene cannot last", options.seconds, "s", 0, kLongestSceneS},
            {"noise cannot have", options.noise_dbfs, "dB of full scale", -200, 0},
            {"the second microphone cannot be", options.second_microphone_db, "dB louder", -200,
             40},
            {"the second microphone cannot hear", delay, "frames later", 0, kMaxDelayFrames},
    };
    for (const auto& [what, value, unit, low, high] : limits) {
        if (within(value, low, high)) continue;
        return host::Error(StringPrintf("%s %g %s; choose %g to %g", what, value, unit, low, high));
    }
    for (const SceneSound& sound : sounds) {
        if (within(sound.start_s, 0, kLongestSceneS) && within(sound.gain_db, -200, 40)) continue;
        return host::Error(StringPrintf("\"%s\" cannot start at %g s with a gain of %g dB",
                                        sound.text.c_str(), sound.start_s, sound.gain_db));
    }
    return {};
}

host::Result<Sound> Voice(const SceneSound& sound) {
    if (!sound.audio) return Speak(sound.text);
    return sound.audio->Channel(0);
}

// What there is to hear at the first microphone, in steps of 16 bits, before any noise.
host::Result<std::vector<double>> PlaceSounds(std::span<const SceneSound> sounds, size_t frames,
                                              Scene* scene) {
    std::vector<double> heard(frames);
    for (const SceneSound& sound : sounds) {
        const host::Result<Sound> voice = Voice(sound);
        if (!voice.ok()) return host::Error(voice.error());
        const size_t begin = Frame(sound.start_s);
        const FrameRange range{begin, begin + voice->frames()};
        if (range.end > heard.size()) heard.resize(range.end);
        const double gain = Amplitude(sound.gain_db);
        for (size_t i = 0; i < voice->frames(); ++i) heard[begin + i] += gain * voice->samples[i];
        scene->ranges.push_back(range);
        if (sound.is_hotword) scene->hotword = range;
    }
    return heard;
}

}  // namespace

host::Result<Scene> MakeScene(std::span<const SceneSound> sounds, const SceneOptions& options) {
    if (const auto checked = Check(sounds, options); !checked.ok()) {
        return host::Error(checked.error());
    }
    Scene scene;
    const auto placed = PlaceSounds(sounds, Frame(options.seconds), &scene);
    if (!placed.ok()) return host::Error(placed.error());
    const std::vector<double>& heard = *placed;

    const double rms = Amplitude(options.noise_dbfs) * 32768;
    Random seeds(options.seed);
    const std::vector<double> first_noise = RoomNoise(heard.size(), rms, seeds.Next());
    const std::vector<double> second_noise = RoomNoise(heard.size(), rms, seeds.Next());
    const double second_gain = Amplitude(options.second_microphone_db);
    const auto delay = static_cast<size_t>(options.second_microphone_delay);
    scene.recording.channels = 2;
    scene.recording.samples.reserve(heard.size() * 2);
    for (size_t i = 0; i < heard.size(); ++i) {
        const double later = i >= delay ? heard[i - delay] : 0;
        scene.recording.samples.push_back(ToSample(heard[i] + first_noise[i]));
        scene.recording.samples.push_back(ToSample(second_gain * later + second_noise[i]));
    }
    return scene;
}

host::Result<Scene> MakeDemoScene(const std::optional<Sound>& hotword,
                                  const SceneOptions& options) {
    constexpr double kFirstWordsAt = 0.5;
    constexpr double kPause = 0.7;
    constexpr double kEndPause = 1;
    std::vector<SceneSound> sounds;
    sounds.push_back({.text = "good morning, what time is it"});
    if (hotword) sounds.push_back({.text = "hotword", .audio = hotword, .is_hotword = true});
    sounds.push_back({.text = "what is the weather today"});

    double at = kFirstWordsAt;
    for (SceneSound& sound : sounds) {
        host::Result<Sound> voice = Voice(sound);
        if (!voice.ok()) return host::Error(voice.error());
        sound.audio = std::move(*voice);
        sound.start_s = at;
        at += Seconds(sound.audio->frames()) + kPause;
    }
    SceneOptions longer = options;
    longer.seconds = std::max(options.seconds, at - kPause + kEndPause);
    return MakeScene(sounds, longer);
}

}  // namespace sthal::audio
