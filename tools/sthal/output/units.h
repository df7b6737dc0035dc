#pragma once

#include <cstdint>
#include <string>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

// "under 1 us", "205 us", "12.3 ms", "1.23 s": a duration for a person.
std::string DurationText(int64_t nanoseconds);

// "1.234 s", since the run began.
std::string RunTime(const RunFacts& facts, int64_t ns);

}  // namespace sthal
