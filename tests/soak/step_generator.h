#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/step.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** Makes the steps of a run from its seed alone, so they are the same on every machine. */
class StepGenerator {
  public:
    // For a board it makes no reads of audio, which are slow there, and no faults in reads of
    // records, which the board's target does not support.
    StepGenerator(uint64_t seed, bool for_board) : random_(seed), for_board_(for_board) {}

    std::vector<Step> Make(size_t count);

  private:
    int Below(int limit) { return static_cast<int>(random_() % static_cast<uint64_t>(limit)); }
    bool OneIn(int chances) { return Below(chances) == 0; }
    int RandomHandle();
    Step Next();
    Step FrameworkStep();
    Step CaptureStep();
    Step EnvironmentStep();
    Step DspStep();

    std::mt19937_64 random_;
    const bool for_board_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
