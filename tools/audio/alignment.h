#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sthal::audio {

// A place where a capture differs from what the microphones heard.
struct Mismatch {
    enum class Kind {
        kChanged,     // As many frames as there should be, but not the same.
        kMissing,     // Frames of the microphones that the capture leaves out.
        kDuplicated,  // Frames that the capture has delivered before.
        kInserted,    // Frames that the microphones did not hear there.
    };
    Kind kind = Kind::kChanged;
    size_t capture_frame = 0;     // Where in the capture.
    size_t microphone_frame = 0;  // The first one changed, missing or duplicated; for kInserted the
                                  // one that should have come.
    size_t frames = 0;
};

// A frame that should be equal and is not.
struct ChangedFrame {
    size_t capture_frame = 0;
    size_t microphone_frame = 0;
    uint32_t expected = 0;
    uint32_t got = 0;
};

// How a capture lies within what the microphones heard.
struct Alignment {
    bool found = false;                 // If not, nothing below counts.
    size_t first_frame = 0;             // The microphones' frame that the capture begins with.
    size_t equal_frames = 0;            // Sample for sample.
    std::vector<Mismatch> mismatches;   // In the capture's order.
    std::vector<ChangedFrame> changed;  // The first 8.
};

// Aligns two sequences in which each frame is one number. Where the audio repeats itself or is
// silent, several alignments may be right; the one without a mismatch is preferred.
Alignment Align(std::span<const uint32_t> microphones, std::span<const uint32_t> capture);

}  // namespace sthal::audio
