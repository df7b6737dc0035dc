#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/facts/record.h"

namespace sthal {

// Something that was in one state for a time.
struct StateSpan {
    std::string subject;  // "DSP", "sound card report", "engine hotword", "client 1".
    std::string state;
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
};

/**
 * What was in which state when: the DSP and its engines from the DSP's journal, the sound card as
 * the HAL was told of it and the HAL's clients from the HAL's log. Grouped by subject, then in the
 * order of time.
 */
std::vector<StateSpan> StateSpans(const RunFacts& facts);

// The state of a subject at a time; empty when it had none.
std::string_view StateAt(const std::vector<StateSpan>& spans, std::string_view subject, int64_t ns);

}  // namespace sthal
