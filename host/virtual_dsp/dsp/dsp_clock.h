#pragma once

#include <cstdint>

namespace virtual_dsp {

// Nanoseconds as ticks of the DSP's clock, 19.2 MHz, rounded down. Whole 625 ns (12 ticks) and the
// rest are converted apart, so that no timestamp overflows.
constexpr uint64_t NanosecondsToTicks(uint64_t ns) {
    return ns / 625 * 12 + ns % 625 * 12 / 625;
}

}  // namespace virtual_dsp
