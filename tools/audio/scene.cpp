#include "tools/audio/scene.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/audio/random.h"
#include "tools/audio/speech.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;

constexpr double kMaxSeconds = 30 * 60;
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
        double decay;
        double gain;
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

std::string Refusal(std::span<const Piece> pieces, const SceneOptions& options) {
    // Written so that what is no number is refused as well.
    const auto within = [](double value, double low, double high) {
        return value >= low && value <= high;
    };
    if (!within(options.seconds, 0, kMaxSeconds)) {
        return StringPrintf("a scene cannot last %g s; choose 0 to %g", options.seconds,
                            kMaxSeconds);
    }
    if (!within(options.noise_dbfs, -200, 0)) {
        return StringPrintf("noise cannot have %g dB of full scale; choose -200 to 0",
                            options.noise_dbfs);
    }
    if (!within(options.second_microphone_db, -200, 40)) {
        return StringPrintf("the second microphone cannot be %g dB louder; choose -200 to 40",
                            options.second_microphone_db);
    }
    if (!within(options.second_microphone_delay, 0, kMaxDelayFrames)) {
        return StringPrintf("the second microphone cannot hear %d frames later; choose 0 to %d",
                            options.second_microphone_delay, kMaxDelayFrames);
    }
    for (const Piece& piece : pieces) {
        if (within(piece.start_s, 0, kMaxSeconds) && within(piece.gain_db, -200, 40)) continue;
        return StringPrintf("\"%s\" cannot start at %g s with a gain of %g dB", piece.text.c_str(),
                            piece.start_s, piece.gain_db);
    }
    return {};
}

Result<Sound> Voice(const Piece& piece) {
    if (!piece.audio) return Speak(piece.text);
    return Result<Sound>::Of(piece.audio->Channel(0));
}

// What there is to hear at the first microphone, in steps of 16 bits, before any noise.
Result<std::vector<double>> PlacePieces(std::span<const Piece> pieces, size_t frames,
                                        Scene* scene) {
    std::vector<double> heard(frames);
    for (const Piece& piece : pieces) {
        const Result<Sound> voice = Voice(piece);
        if (!voice) return Result<std::vector<double>>::Error(voice.error);
        const size_t begin = Frame(piece.start_s);
        const FrameRange range{begin, begin + voice->frames()};
        if (range.end > heard.size()) heard.resize(range.end);
        const double gain = Amplitude(piece.gain_db);
        for (size_t i = 0; i < voice->frames(); ++i) heard[begin + i] += gain * voice->samples[i];
        scene->parts.push_back({piece.text, range});
        if (piece.is_hotword) scene->hotword = range;
    }
    return Result<std::vector<double>>::Of(std::move(heard));
}

}  // namespace

Result<Scene> MakeScene(std::span<const Piece> pieces, const SceneOptions& options) {
    if (std::string refusal = Refusal(pieces, options); !refusal.empty()) {
        return Result<Scene>::Error(std::move(refusal));
    }
    Scene scene;
    const auto placed = PlacePieces(pieces, Frame(options.seconds), &scene);
    if (!placed) return Result<Scene>::Error(placed.error);
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
    return Result<Scene>::Of(std::move(scene));
}

Result<Scene> MakeDemoScene(const std::optional<Sound>& hotword, const SceneOptions& options) {
    constexpr double kFirstWordsAt = 0.5;
    constexpr double kPause = 0.7;
    constexpr double kEndPause = 1;
    std::vector<Piece> pieces;
    pieces.push_back({.text = "good morning, what time is it"});
    if (hotword) pieces.push_back({.text = "hotword", .audio = hotword, .is_hotword = true});
    pieces.push_back({.text = "what is the weather today"});

    double at = kFirstWordsAt;
    for (Piece& piece : pieces) {
        Result<Sound> voice = Voice(piece);
        if (!voice) return Result<Scene>::Error(std::move(voice.error));
        piece.audio = std::move(voice.value);
        piece.start_s = at;
        at += Seconds(piece.audio->frames()) + kPause;
    }
    SceneOptions longer = options;
    longer.seconds = std::max(options.seconds, at - kPause + kEndPause);
    return MakeScene(pieces, longer);
}

}  // namespace sthal::audio
