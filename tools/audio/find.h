#pragma once

#include <cstddef>

#include "tools/audio/sound.h"

namespace sthal::audio {

struct Match {
    FrameRange range;        // Where the template lies in the recording.
    double correlation = 0;  // -1..1, normalised.
};

/**
 * Where in a recording a template is heard best: the highest normalised cross-correlation of the
 * first channels. Written apart from the DSP's detector, so that the one can be held against the
 * other.
 *
 * @return A match of correlation 0 at the start when the template is longer than the recording or
 *         silent. Takes about a second for a minute of recording.
 */
Match FindTemplate(const Sound& recording, const Sound& pattern);

}  // namespace sthal::audio
