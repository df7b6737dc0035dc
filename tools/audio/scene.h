#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/audio/sound.h"

namespace sthal::audio {

// Something heard in a scene: a text to be spoken, or audio of which the first channel is played.
struct Piece {
    std::string text;  // Spoken when there is no audio; else only its name.
    std::optional<Sound> audio{};
    double start_s = 0;  // 0 or more.
    double gain_db = 0;
    bool is_hotword = false;
};

struct SceneOptions {
    double seconds = 8;                // At least; a piece that ends later makes the scene longer.
    double noise_dbfs = -50;           // Each microphone's own noise, as root mean square.
    double second_microphone_db = -6;  // How much louder the second one hears the pieces.
    int second_microphone_delay = 3;   // Frames by which it hears them later, 0..1000.
    uint64_t seed = 1;                 // Of the noise.
};

struct Scene {
    Sound recording;                    // Two channels, one for each microphone.
    std::optional<FrameRange> hotword;  // Where the first microphone hears it.
    struct Part {
        std::string text;
        FrameRange range;
    };
    std::vector<Part> parts;  // Every piece, as given.
};

/**
 * Records the pieces over background noise with two microphones. The first one hears them as they
 * are, gain apart; so what is spoken or played in a scene correlates with the same audio elsewhere.
 * The same arguments give the same samples.
 *
 * @return The scene, or what is wrong with the arguments or could not be spoken.
 */
Result<Scene> MakeScene(std::span<const Piece> pieces, const SceneOptions& options = {});

/**
 * Somebody chats, says the hotword, then asks for something: about 8 s of it. Without a hotword the
 * chat and the request come alone, and nothing in them should be detected.
 *
 * @param hotword  The audio that a model is made of.
 */
Result<Scene> MakeDemoScene(const std::optional<Sound>& hotword, const SceneOptions& options = {});

}  // namespace sthal::audio
