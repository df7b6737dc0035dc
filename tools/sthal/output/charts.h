#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <span>

#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/findings/recording_marks.h"
#include "tools/sthal/findings/states.h"

// The drawings of a page as data for its template. Places and widths are in percent of a drawing's
// width. Null where there is nothing to draw.
namespace sthal {

// The first channel of one of the run's recordings, with its marks.
nlohmann::json WaveformChart(const RunFacts& facts, const audio::Sound& recording,
                             std::span<const RecordingMark> marks);

// A row for each subject, from the beginning of the run to its end.
nlohmann::json StateChart(const RunFacts& facts, std::span<const StateSpan> spans);

}  // namespace sthal
