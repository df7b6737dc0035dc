#pragma once

#include <cstddef>
#include <string>

#include "tools/audio/alignment.h"
#include "tools/audio/sound.h"

namespace sthal::audio {

// How a capture lies within the microphones' recording. A frame is the first channel's sample and,
// of two channels, the second one's in the upper 16 bits.
struct Comparison : Alignment {
    int channels = 1;  // Of the capture.
    size_t capture_frames = 0;
    int first_microphone = 0;  // 0 or 1: the microphone in the capture's first channel.

    // Counts the microphones' frames from one that lies so many earlier.
    void CountFrom(size_t earlier);
    bool IsExact() const { return found && equal_frames == capture_frames && mismatches.empty(); }
    // One line, "capture starts at 1.420 s, 53248 frames equal, no frame missing or duplicated",
    // and one for each of the first mismatches and changed frames. No line feed at the end.
    std::string ToString() const;
};

/**
 * Finds where in the microphones' recording a capture begins, and follows it to its end. Needs 32
 * equal frames in a row, or all frames of a shorter capture. Where the recording repeats itself or
 * is silent, the place of missing frames may be wrong. Takes well below a second for a minute of
 * audio.
 *
 * @param microphones  One or two channels.
 * @param capture      Two channels, in either order, or one of them alone.
 */
Comparison CompareCapture(const Sound& microphones, const Sound& capture);

// The same for a capture that went through mu-law (ITU-T G.711) and back. The expected values are
// those after the round trip.
Comparison CompareMulawCapture(const Sound& microphones, const Sound& capture);

}  // namespace sthal::audio
