#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/soak/soak_target.h"
#include "tests/soak/step_generator.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using TargetFactory = std::function<std::unique_ptr<SoakTarget>()>;

/** A difference between the HAL and the oracle. */
struct Finding {
    size_t step;  // The number of the last step taken, from 0.
    std::string what;
};

struct SoakCounts {
    uint64_t steps = 0;
    uint64_t events = 0;
    uint64_t recoveries = 0;
    // Second events without a new start, after a restart of the DSP. A started model stays started
    // until it is stopped. So it is restarted with the DSP, whether or not its event has come.
    uint64_t events_after_restart = 0;
};

/** Takes the steps on a new target and on the oracle, until the steps end or the two differ. */
std::optional<Finding> RunSteps(const std::vector<Step>& steps, const TargetFactory& make_target,
                                SoakCounts* counts);

/**
 * Removes the steps that are not needed for `fails` to hold: halves first, single steps last. Stops
 * after `patience`. The result still fails.
 */
std::vector<Step> Shrink(std::vector<Step> steps,
                         const std::function<bool(const std::vector<Step>&)>& fails,
                         std::chrono::milliseconds patience);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
