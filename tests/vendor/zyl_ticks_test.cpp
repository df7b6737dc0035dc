#include "audio/hal/utils/zyl/zyl_ticks.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>

namespace {

namespace zyl = ::vendor::quarno::brindlecove::audio::hal::utils::zyl;

__extension__ typedef unsigned __int128 Wide;
constexpr int64_t kForever = std::numeric_limits<int64_t>::max();

TEST(ZylTicksTest, EveryMagnitudeIsExactSaturatesAndReturns) {
    EXPECT_EQ(1'000'000'000, zyl::zyl_ticks_to_nanoseconds(19'200'000));
    EXPECT_EQ(0u, zyl::zyl_nanoseconds_to_ticks(std::numeric_limits<int64_t>::min()));

    constexpr auto kLastExact = static_cast<uint64_t>(Wide{kForever} * 12 / 625);
    std::mt19937_64 random(1);
    for (int round = 0; round < 5000; ++round) {
        // Of any length, or close to where int64_t ends.
        const uint64_t ticks =
                round % 2 == 0 ? random() >> (round % 64) : kLastExact - 20 + random() % 40;
        const Wide exact = Wide{ticks} * 625 / 12;
        const int64_t result = zyl::zyl_ticks_to_nanoseconds(ticks);
        ASSERT_EQ(exact > Wide{kForever} ? kForever : static_cast<int64_t>(exact), result) << ticks;
        if (result < kForever) {
            ASSERT_EQ(ticks, zyl::zyl_nanoseconds_to_ticks(result));
        }
    }
}

}  // namespace
