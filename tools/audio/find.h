#pragma once

#include <vector>

#include "tools/audio/sound.h"

namespace sthal::audio {

struct Match {
    FrameRange range;        // Where the pattern lies in the recording.
    double correlation = 0;  // 0..1, the score that the DSP's detector gives.
};

/**
 * Where in a recording a pattern is heard, by the normalised cross-correlation of the first
 * channels at every frame. Takes about 0.1 s for a minute of recording.
 *
 * @param least  The least correlation that counts, above 0.
 * @return The matches in time order. Of two that would overlap, only the better one counts.
 */
std::vector<Match> FindMatches(const Sound& recording, const Sound& pattern, double least);

/**
 * Where the pattern is heard best, by whatever correlation. At the start, with 0, if nowhere: the
 * pattern is longer than the recording, or one of them is silent.
 */
Match FindTemplate(const Sound& recording, const Sound& pattern);

}  // namespace sthal::audio
