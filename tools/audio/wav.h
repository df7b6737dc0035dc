#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/audio/sound.h"

namespace sthal::audio {

enum class Channels {
    kAsFound,  // One or two; of more, the first two.
    kMono,     // The first one: a mix of microphones would blur what each of them heard.
    kStereo,   // One is doubled.
};

struct DecodedAudio {
    Sound sound;
    // What had to be changed, for a person: "sample rate 8000 Hz to 16000 Hz". Empty when the
    // samples are the file's own.
    std::vector<std::string> conversions;
};

/**
 * Reads a WAV file (or what else libsndfile knows) of any rate, encoding and number of channels,
 * at most 30 minutes of it.
 *
 * @return The audio at kSampleRateHz, or what is wrong with the file and what to do. A file that is
 *         shorter than its header says is refused: half a recording would pass for a whole one.
 */
Result<DecodedAudio> ReadWav(const std::string& path, Channels wanted = Channels::kAsFound);

// The same for a file in memory; `name` is what error texts call it. A data size that a writer to
// a pipe could only guess is not held against the file.
Result<DecodedAudio> DecodeWav(std::span<const uint8_t> file, const std::string& name,
                               Channels wanted = Channels::kAsFound);

/**
 * Writes 16-bit PCM, as WriteFileBytes() does.
 *
 * @return Empty when written, else why not.
 */
[[nodiscard]] std::string WriteWav(const std::string& path, const Sound& sound);

}  // namespace sthal::audio
