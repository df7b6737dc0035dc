#include <algorithm>

#include "tests/soak/soak_run.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

std::vector<Step> Shrink(std::vector<Step> steps,
                         const std::function<bool(const std::vector<Step>&)>& fails,
                         std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    size_t chunk = std::max<size_t>(steps.size() / 2, 1);
    while (!steps.empty()) {
        bool is_shorter = false;
        for (size_t first = 0; first < steps.size();) {
            if (std::chrono::steady_clock::now() >= deadline) return steps;
            std::vector<Step> fewer = steps;
            const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(first);
            fewer.erase(begin,
                        begin + static_cast<std::ptrdiff_t>(std::min(chunk, steps.size() - first)));
            if (fails(fewer)) {
                steps = std::move(fewer);
                is_shorter = true;
            } else {
                first += chunk;
            }
        }
        if (chunk == 1 && !is_shorter) break;
        // Single steps may go once others have gone.
        chunk = std::max<size_t>(chunk / 2, 1);
    }
    return steps;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
