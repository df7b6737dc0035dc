#include "audio/hal/utils/zyl/zyl_ticks.h"

#include <limits>

namespace vendor::quarno::brindlecove::audio::hal::utils::zyl {

namespace {

// 19.2 MHz: 12 ticks take exactly 625 ns.
constexpr uint64_t kTicksPerPeriod = 12;
constexpr uint64_t kNanosecondsPerPeriod = 625;

}  // namespace

int64_t zyl_ticks_to_nanoseconds(uint64_t ticks) {
    constexpr uint64_t kMax = std::numeric_limits<int64_t>::max();
    const uint64_t periods = ticks / kTicksPerPeriod;
    if (periods > kMax / kNanosecondsPerPeriod) return kMax;
    const uint64_t rest = ticks % kTicksPerPeriod * kNanosecondsPerPeriod / kTicksPerPeriod;
    const uint64_t nanoseconds = periods * kNanosecondsPerPeriod + rest;
    return static_cast<int64_t>(nanoseconds < kMax ? nanoseconds : kMax);
}

uint64_t zyl_nanoseconds_to_ticks(int64_t nanoseconds) {
    if (nanoseconds <= 0) return 0;
    const auto value = static_cast<uint64_t>(nanoseconds);
    const uint64_t rest = value % kNanosecondsPerPeriod * kTicksPerPeriod;
    return value / kNanosecondsPerPeriod * kTicksPerPeriod +
           (rest + kNanosecondsPerPeriod - 1) / kNanosecondsPerPeriod;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::zyl
