#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/common/result.h"
#include "tools/audio/sound.h"
#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/phone/playing_recording.h"

namespace sthal {

struct LoadedModel {
    int handle = 0;
    bool is_generic = false;  // Of music, for the ambient engine.
    int io_handle = 0;        // Of its latest start.
    audio::Sound pattern{};
};

// What is to be played into the microphones of a run, and what the DSP is to find in it; then what
// has become of it.
struct Recording {
    audio::Sound sound;                            // Two channels.
    audio::Sound pattern;                          // What a model is made of.
    std::optional<audio::FrameRange> expected{};   // Where the pattern is heard; none: nowhere.
    std::string label = "the hotword";             // What the pattern is.
    std::vector<std::string> notes{};              // What a person should know of how it was made.
    std::optional<LoadedModel> model{};            // That was made of the pattern.
    std::shared_ptr<PlayingRecording> playback{};  // Null until it is played.
    std::optional<Event> detection{};              // The event that was waited for and came.
};

// A chat in which somebody says `hotword`, or does not.
host::Result<Recording> RecordSpeech(const std::string& hotword, bool is_spoken);

// Music, or the silence without it.
host::Result<Recording> RecordMusic(bool is_played);

// Two WAV files, not yet searched for the pattern.
host::Result<Recording> ReadRecording(const std::string& path, const std::string& hotword_path);

// Finds the pattern in a recording that was read: it is expected where it fits by `threshold`.
void FindPattern(Recording& recording, double threshold);

// The recording with its pattern marked, for a terminal.
std::string Draw(const Recording& recording);

}  // namespace sthal
