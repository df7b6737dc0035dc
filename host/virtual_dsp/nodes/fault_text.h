#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/result.h"
#include "host/virtual_dsp/nodes/faults.h"

namespace virtual_dsp {

// The text form of a fault script, one rule a line; docs/virtual_board.md describes it:
//
//     seed 42
//     on command reply id=227 after=1 times=1 errno=EIO   # the second start is refused
//     on hotword_pcm read chance=0.1 short=512
//
// The error says the line and what was expected there: "line 2: expected ..., found ...".
[[nodiscard]] host::Result<FaultScript> ParseFaults(std::string_view text);

// One rule, such as "on clock read errno=EIO". The error says what was expected: "expected ...,
// found ...".
[[nodiscard]] host::Result<FaultRule> ParseFault(std::string_view line);

// The text that ParseFault() or ParseFaults() reads as the same rule or script.
std::string PrintFault(const FaultRule& rule);
std::string PrintFaults(const FaultScript& script);

// What may come after so many words of a rule, without its "on": a node, an operation, then
// conditions and an effect, with the '=' of those that have a value.
std::vector<std::string> NextFaultWords(size_t words);

// The number of an error's name, such as "EIO".
std::optional<int> ErrnoOf(std::string_view name);

}  // namespace virtual_dsp
