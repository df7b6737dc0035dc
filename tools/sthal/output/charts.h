#pragma once

#include <span>
#include <string>
#include <vector>

#include "tools/sthal/facts/record.h"
#include "tools/sthal/findings/states.h"

// The drawings of a report, as HTML. Text stands beside them, not in them, so that it keeps its
// size on a narrow page.
namespace sthal {

// Something to show in a recording. An empty range is one instant.
struct ChartMark {
    enum class Kind { kSpoken, kMissed, kDetected, kCaptured, kSilent };
    Kind kind = Kind::kSpoken;
    std::string label;  // Empty: not in the list.
    audio::FrameRange range{};
};

// The first channel of a recording with its marks, and a list of them.
std::string WaveformChart(const audio::Sound& recording, std::span<const ChartMark> marks);

// A row for each subject, from the beginning of the run to its end.
std::string StateChart(std::span<const StateSpan> spans, int64_t start_ns, int64_t end_ns);

}  // namespace sthal
