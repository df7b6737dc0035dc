#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sthal::audio {

// A place where a capture departs from what the microphones heard.
struct Departure {
    enum class Kind {
        kChanged,  // As many frames as there should be, but not the same.
        kMissing,  // Frames of the microphones that the capture leaves out.
        kDoubled,  // Frames that the capture has delivered before.
        kForeign,  // Frames that the microphones did not hear there.
    };
    Kind kind = Kind::kChanged;
    size_t capture_frame = 0;     // Where in the capture.
    size_t microphone_frame = 0;  // The first one changed, missing or repeated; for kForeign the
                                  // one that should have come.
    size_t frames = 0;
};

// How a capture lies within what the microphones heard.
struct Alignment {
    bool found = false;
    size_t first_frame = 0;  // The microphones' frame that the capture begins with.
    size_t equal_frames = 0;
    std::vector<Departure> departures;  // In the capture's order.
    struct Pair {
        size_t capture_frame;
        size_t microphone_frame;
    };
    std::vector<Pair> changed;  // The first 8 pairs that should be equal and are not.
};

// Aligns two sequences in which each frame is one number. Where the audio repeats itself or is
// silent, several alignments may be right; the one without a departure is preferred.
Alignment Align(std::span<const uint32_t> microphones, std::span<const uint32_t> capture);

}  // namespace sthal::audio
