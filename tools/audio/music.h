#pragma once

#include <cstdint>

#include "tools/audio/sound.h"

namespace sthal::audio {

/**
 * A piece of music: chords, a bass and an arpeggio, 120 beats a minute, as loud as 16 bits take
 * less 6 dB. The seed chooses the notes; no seed gives a tune that repeats itself exactly, so a
 * stretch of 2 s or more of it can be told from any other.
 *
 * @param seconds  0 to 1800; more or less is taken as the nearest of the two.
 * @return One channel, the same samples for the same arguments.
 */
Sound MakeMusic(double seconds, uint64_t seed = 1);

}  // namespace sthal::audio
