#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/common/result.h"
#include "tools/audio/sound.h"

namespace sthal::audio {

// What is heard in a scene: a text that is spoken, or the first channel of some audio.
struct SceneSound {
    std::string text;              // With audio, only its name.
    std::optional<Sound> audio{};  // None: the text is spoken.
    double start_s = 0;            // 0 or more.
    double gain_db = 0;
    bool is_hotword = false;
};

struct SceneOptions {
    double seconds = 8;                // At least; the scene lasts until its last sound ends.
    double noise_dbfs = -50;           // Of each microphone, as root mean square.
    double second_microphone_db = -6;  // Gain of the second microphone against the first.
    int second_microphone_delay = 3;   // Frames, 0..1000.
    uint64_t seed = 1;                 // Of the noise.
};

struct Scene {
    Sound recording;                    // Two channels, one for each microphone.
    std::optional<FrameRange> hotword;  // Where the first microphone hears it.
    std::vector<FrameRange> ranges;     // Of all sounds, as given.
};

/**
 * Records sounds and background noise with two microphones. The first one changes nothing of the
 * sounds but their gain, so they correlate with a model made of the same audio. The same arguments
 * give the same samples.
 *
 * @return The scene, or which argument is wrong, or why a text could not be spoken.
 */
host::Result<Scene> MakeScene(std::span<const SceneSound> sounds, const SceneOptions& options = {});

/**
 * About 8 s: somebody chats, says the hotword, then asks for something.
 *
 * @param hotword  The audio that a model is made of. Without it nothing should be detected.
 */
host::Result<Scene> MakeDemoScene(const std::optional<Sound>& hotword,
                                  const SceneOptions& options = {});

}  // namespace sthal::audio
