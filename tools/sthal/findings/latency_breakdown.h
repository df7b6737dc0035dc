#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

// The steps of a detection, in their order.
enum class LatencyStep { kHotwordEnd, kReadable, kRead, kCallback, kOpened, kFirstAudio, kLive };
inline constexpr std::array kLatencySteps = {LatencyStep::kHotwordEnd, LatencyStep::kReadable,
                                             LatencyStep::kRead,       LatencyStep::kCallback,
                                             LatencyStep::kOpened,     LatencyStep::kFirstAudio,
                                             LatencyStep::kLive};

struct DspCrash {};

// What a record that nobody had read was dropped by.
using DropCause = std::variant<DspCrash, virtual_dsp::VoidedBy>;

// One record that the DSP raised, followed to the audio of its capture.
struct DetectionTrail {
    virtual_dsp::DetectionRaised raised{};
    std::array<int64_t, kLatencySteps.size()> times{};  // 0: did not happen, or is not known.
    int handle = 0;                                     // Of the event's model; 0: no event came.
    std::optional<size_t> stream{};                     // Of RunFacts::streams.
    std::optional<DropCause> dropped_by{};

    int64_t At(LatencyStep step) const { return times[static_cast<size_t>(step)]; }
    int64_t& At(LatencyStep step) { return times[static_cast<size_t>(step)]; }
    // From the latest earlier step that is known; none when this one or those are not.
    std::optional<int64_t> Took(LatencyStep step) const;
};

// All records of the run, in the order of time.
std::vector<DetectionTrail> DetectionTrails(const RunFacts& facts);

struct LatencyStatistics {
    LatencyStep step = LatencyStep::kHotwordEnd;
    size_t count = 0;
    int64_t p50_ns = 0;
    int64_t p90_ns = 0;
    int64_t p99_ns = 0;
    int64_t max_ns = 0;
};

// Of each step that was taken at least once (nearest-rank percentiles).
std::vector<LatencyStatistics> Statistics(std::span<const DetectionTrail> trails);

// Of the way from one step to another, over the detections of which both are known.
std::optional<LatencyStatistics> StatisticsBetween(std::span<const DetectionTrail> trails,
                                                   LatencyStep from, LatencyStep to);

}  // namespace sthal
