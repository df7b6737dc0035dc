#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/virtual_dsp/nodes/faults.h"

namespace virtual_dsp {

// The text form of a fault script, one rule a line; docs/virtual_board.md describes it:
//
//     seed 42
//     on command reply id=227 after=1 times=1 errno=EIO   # the second start is refused
//     on hotword_pcm read chance=0.1 short=512
//
// Empty, with `error` set to "line N: ..." and what was expected there, when the text is not one.
std::optional<FaultScript> ParseFaults(std::string_view text, std::string* error);

// The text that ParseFaults() reads as the same rule or script.
std::string PrintFault(const FaultRule& rule);
std::string PrintFaults(const FaultScript& script);

}  // namespace virtual_dsp
