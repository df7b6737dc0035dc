#pragma once

#include <span>
#include <string>

#include "tools/audio/sound.h"

namespace sthal::audio {

// A mark below a waveform: a range of frames, or one frame if the range is empty.
struct Marker {
    std::string label;
    FrameRange range;
};

/**
 * Draws the first channel for a terminal (UTF-8): one line of blocks, each as high as its loudest
 * sample in decibels, and below it one line for each marker.
 *
 *     ▁▁▁▅▇█▆▃▁▁▁▆█▇▅▂▁▁▁▃▆▇▅▁▁▁
 *                ├────┤           hotword 3.120 to 4.280 s
 *                     │           detected 4.284 s
 *
 * @param width  Columns of the waveform, at least 1; labels stand right of it.
 * @return The lines, each with its line feed.
 */
std::string DrawWaveform(const Sound& sound, size_t width, std::span<const Marker> markers = {});

}  // namespace sthal::audio
