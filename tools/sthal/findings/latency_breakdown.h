#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/virtual_dsp/dsp/engine.h"
#include "tools/sthal/facts/record.h"

namespace sthal {

// The steps of a detection, in their order.
enum class Step { kInstant, kReadable, kRead, kCallback, kOpened, kFirstAudio, kLive };
inline constexpr std::array kSteps = {Step::kInstant,  Step::kReadable, Step::kRead,
                                      Step::kCallback, Step::kOpened,   Step::kFirstAudio,
                                      Step::kLive};
// "first audio", for a heading.
const char* StepName(Step step);

// One record that the DSP raised, followed to the audio of its capture.
struct Detection {
    virtual_dsp::Engine engine = virtual_dsp::Engine::kHotword;
    enum class Kind { kHeard, kForced, kInternal };
    Kind kind = Kind::kHeard;
    std::optional<uint64_t> frame;  // The microphone's at which the hotword ended.
    double score = 0;
    uint64_t captured_from = 0;      // The microphone's frame.
    std::array<int64_t, 7> times{};  // Of kSteps; 0: did not happen, or is not known.
    int handle = 0;                  // Of the model whose event came; 0: none did.
    std::optional<size_t> stream;    // Of RunFacts::streams.
    std::string dropped_by;          // What the unread record was dropped by, if it was.

    int64_t At(Step step) const { return times[static_cast<size_t>(step)]; }
    int64_t& At(Step step) { return times[static_cast<size_t>(step)]; }
    // From the latest earlier step that is known; none when this one or those are not.
    std::optional<int64_t> Took(Step step) const;
};

// All records of the run, in the order of time.
std::vector<Detection> Detections(const RunFacts& facts);

struct StepStatistics {
    Step step = Step::kInstant;
    size_t count = 0;
    int64_t p50_ns = 0;
    int64_t p90_ns = 0;
    int64_t p99_ns = 0;
    int64_t max_ns = 0;
};

// Of each step that was taken at least once (nearest-rank percentiles).
std::vector<StepStatistics> Statistics(std::span<const Detection> detections);

// Of the way from one step to another, over the detections of which both are known.
std::optional<StepStatistics> StatisticsBetween(std::span<const Detection> detections, Step from,
                                                Step to);

}  // namespace sthal
