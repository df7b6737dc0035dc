#pragma once

#include <android-base/unique_fd.h>

#include <string>
#include <vector>

#include "host/common/result.h"
#include "tools/audio/sound.h"

namespace sthal::audio {

enum class Channels {
    kMono,    // The first one: a mix of microphones would blur what each of them heard.
    kStereo,  // The first two; one alone is doubled.
};

struct DecodedAudio {
    Sound sound;
    // What had to be changed, such as "sample rate 8000 Hz to 16000 Hz". Empty if the samples are
    // the file's own.
    std::vector<std::string> conversions;
};

/**
 * Reads a WAV file, or what else libsndfile knows, of any rate, encoding and number of channels. A
 * pipe is read to its end first.
 *
 * @return The audio at kSampleRateHz, or what is wrong with the file and what to do. Refused are
 *         more than 30 minutes, and a file that is shorter than its header says: half a recording
 *         would pass for a whole one.
 */
host::Result<DecodedAudio> ReadWav(const std::string& path, Channels wanted);

// The same for an open regular file, which error texts call `name`.
host::Result<DecodedAudio> ReadWav(android::base::borrowed_fd fd, const std::string& name,
                                   Channels wanted);

/**
 * Writes 16-bit PCM, as WriteFileBytes() does.
 *
 * @return Why not, if it could not be written.
 */
host::Result<void> WriteWav(const std::string& path, const Sound& sound);

}  // namespace sthal::audio
