#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"

#include <cstddef>
#include <cstring>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

namespace {

constexpr int kBias = 0x84;

constexpr int16_t Expand(uint8_t code) {
    // On the wire all bits are inverted: sign, three bits of exponent, four of mantissa.
    const int bits = static_cast<uint8_t>(~code);
    const int exponent = (bits >> 4) & 0x07;
    const int mantissa = bits & 0x0F;
    const int magnitude = (((mantissa << 3) + kBias) << exponent) - kBias;
    return static_cast<int16_t>((bits & 0x80) != 0 ? -magnitude : magnitude);
}

constexpr std::array<int16_t, 256> MakeTable() {
    std::array<int16_t, 256> table{};
    for (size_t code = 0; code < table.size(); ++code) {
        table[code] = Expand(static_cast<uint8_t>(code));
    }
    return table;
}

// A look-up is the fastest way: half a kilobyte that stays in the first-level cache.
constexpr std::array<int16_t, 256> kTable = MakeTable();

}  // namespace

void ExpandMulaw(std::span<const uint8_t> mulaw, char* linear) {
    for (const uint8_t code : mulaw) {
        std::memcpy(linear, &kTable[code], sizeof(int16_t));
        linear += sizeof(int16_t);
    }
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
