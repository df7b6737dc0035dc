#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

namespace virtual_dsp {

// One 16-bit sample as mu-law (ITU-T G.711): sign, 3 bits of exponent, 4 of mantissa, all inverted.
constexpr uint8_t EncodeMulaw(int16_t sample) {
    constexpr int kBias = 0x84;
    constexpr int kClip = 32635;  // The largest magnitude that the bias leaves within 15 bits.
    const uint8_t sign = sample < 0 ? 0x80 : 0;
    const auto biased =
            static_cast<uint32_t>(std::min(sample < 0 ? -int{sample} : int{sample}, kClip) + kBias);
    // The bias makes bit 7 the lowest leading one: never below 0.
    const int exponent = std::max(0, static_cast<int>(std::bit_width(biased)) - 8);
    const auto mantissa = static_cast<uint8_t>((biased >> (exponent + 3)) & 0x0F);
    return static_cast<uint8_t>(~(sign | (exponent << 4) | mantissa));
}

}  // namespace virtual_dsp
