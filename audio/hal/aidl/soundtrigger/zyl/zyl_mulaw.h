#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

/**
 * Expands mu-law samples to 16-bit linear ones (ITU-T G.711, bias 0x84): 0xFF gives 0, 0x00 gives
 * -32124, 0x80 gives 32124.
 *
 * @param linear  Room for mulaw.size() samples of 2 bytes; need not be aligned.
 */
void ExpandMulaw(std::span<const uint8_t> mulaw, char* linear);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
