#pragma once

#include <cstdint>

#include "tools/audio/sound.h"

namespace sthal::audio {

/**
 * Music: chords, a bass and an arpeggio, 120 beats a minute, with its peak at half of full scale.
 * The seed chooses the notes. No two stretches of 2 s or more are the same.
 *
 * @param seconds  Limited to 0..1800.
 * @return One channel, the same samples for the same arguments.
 */
Sound MakeMusic(double seconds, uint64_t seed = 1);

}  // namespace sthal::audio
