#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/audio/sound.h"
#include "tools/sthal/commands/demo.h"

namespace sthal {

// What is played into the microphone in a demo, and what the DSP is to find in it.
struct DemoAudio {
    audio::Sound recording;                     // Two channels.
    audio::Sound pattern;                       // What the model is made of; empty without a model.
    std::optional<audio::FrameRange> expected;  // Where the pattern is heard; none: nowhere.
    std::vector<std::string> notes;             // What a person should know of how it was made.
};

/**
 * Makes or reads the audio of a demo.
 *
 * @return The audio, or what is wrong with the options or files and what to do.
 */
audio::Result<DemoAudio> MakeDemoAudio(const DemoOptions& options);

}  // namespace sthal
