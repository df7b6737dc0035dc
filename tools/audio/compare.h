#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/audio/alignment.h"
#include "tools/audio/sound.h"

namespace sthal::audio {

// One frame that is not what it should be. Of a single channel only [0] counts.
struct ChangedFrame {
    size_t capture_frame = 0;
    size_t microphone_frame = 0;
    std::array<int16_t, 2> expected{};
    std::array<int16_t, 2> got{};
};

// What a capture has in common with the microphones' recording.
struct Comparison {
    bool found = false;  // If not, nothing below but the first two counts.
    int channels = 1;    // Of the capture.
    size_t capture_frames = 0;
    // The microphone (0 or 1) that is in the first channel; in a mono capture, the only one.
    int first_microphone = 0;
    size_t first_frame = 0;             // The microphones' frame that the capture begins with.
    size_t equal_frames = 0;            // Sample for sample.
    std::vector<Departure> departures;  // In the capture's order.
    std::vector<ChangedFrame> changed;  // The first few.

    // Counts the microphones' frames from one that lies so many earlier.
    void CountFrom(size_t earlier);
    bool IsExact() const { return found && equal_frames == capture_frames && departures.empty(); }
    // Frames that departures of one kind amount to.
    size_t Frames(Departure::Kind kind) const;
    // For a person: one line, "capture starts at 1.420 s, 53248 frames equal, no frame missing or
    // doubled", and one more for each of the first departures and changed frames. No final line
    // feed.
    std::string ToString() const;
};

/**
 * Finds where in the microphones' recording a capture comes from, and follows it frame by frame to
 * its end, past any departure. Wants 32 equal frames in a row, or a whole capture that is shorter.
 *
 * @param microphones  What was heard, one or two channels.
 * @param capture      Two channels, also the other way round, or one of them alone.
 *
 * Takes milliseconds for minutes of audio. Where the recording repeats itself, or is silent, a lost
 * stretch cannot be told from another of its kind; noise is enough to tell.
 */
Comparison CompareCapture(const Sound& microphones, const Sound& capture);

// The same for a mono capture that went through mu-law (ITU-T G.711) and back. The expected values
// are those after the round trip.
Comparison CompareMulawCapture(const Sound& microphones, const Sound& capture);

}  // namespace sthal::audio
