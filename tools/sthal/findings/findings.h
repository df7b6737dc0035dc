#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/facts/record.h"
#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/missed.h"
#include "tools/sthal/findings/states.h"
#include "tools/sthal/output/charts.h"

namespace sthal {

// What has been found out of the facts of a run.
struct RunFindings {
    explicit RunFindings(const RunFacts& facts);

    std::vector<StateSpan> states;
    std::vector<Detection> detections;
    std::vector<SpokenHotword> spoken;
    std::vector<MissedHotword> missed;
};

// Lines for a person.
struct Told {
    std::vector<std::string> problems;  // Begin with the verdict, if that is bad.
    std::vector<std::string> notes;
};
Told Tell(const RunFacts& facts, const RunFindings& found);

enum class VerdictKind { kGood, kBad, kUnjudged };
VerdictKind KindOf(std::string_view verdict);
// What a run without a verdict has instead.
std::string VerdictText(const RunFacts& facts);

// "1.234 s", since the run began.
std::string RunTime(const RunFacts& facts, int64_t ns);

// What is to be seen in a recording: hotwords, detections, and what was captured of it.
std::vector<ChartMark> MarksOf(const RunFacts& facts, const RunFindings& found, size_t playback);

// At most so many recordings, in their order: the last one, in which a run fails that fails at its
// end, then those with a missed hotword, then the latest.
std::vector<size_t> PlaybacksToShow(const RunFacts& facts, const RunFindings& found, size_t most);

}  // namespace sthal
