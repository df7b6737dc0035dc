#include "tools/sthal/output/units.h"

#include <cstdio>

namespace sthal {

std::string DurationText(int64_t nanoseconds) {
    char text[48];
    const auto value = static_cast<double>(nanoseconds);
    if (value < 1e3) return "under 1 us";
    if (value < 1e6) {
        (void)std::snprintf(text, sizeof(text), "%.0f us", value / 1e3);
    } else if (value < 1e9) {
        (void)std::snprintf(text, sizeof(text), "%.1f ms", value / 1e6);
    } else {
        (void)std::snprintf(text, sizeof(text), "%.2f s", value / 1e9);
    }
    return text;
}

std::string RunTime(const RunFacts& facts, int64_t ns) {
    char text[40];
    (void)std::snprintf(text, sizeof(text), "%.3f s",
                        static_cast<double>(ns - facts.start_ns) / 1e9);
    return text;
}

}  // namespace sthal
