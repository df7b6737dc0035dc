#pragma once

#include <cstdint>

namespace vendor::quarno::brindlecove::audio::hal::utils::zyl {

/**
 * Converts a reading of the DSP's clock, which runs at 19.2 MHz (625/12 ns a tick).
 *
 * @return Nanoseconds, rounded down; INT64_MAX for readings beyond it (some 292 years).
 */
[[nodiscard]] int64_t zyl_ticks_to_nanoseconds(uint64_t ticks);

/**
 * The inverse: the first tick at which zyl_ticks_to_nanoseconds() has reached `nanoseconds`, so
 * that a reading which was converted to nanoseconds comes back unchanged.
 *
 * @param nanoseconds  Negative counts as 0.
 */
[[nodiscard]] uint64_t zyl_nanoseconds_to_ticks(int64_t nanoseconds);

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::zyl
