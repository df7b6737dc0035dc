#pragma once

#include <string>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

/**
 * A run in Chrome's trace event format (the JSON object form), for Perfetto and chrome://tracing:
 * a lane for each of the framework's calls, the HAL's lock, its control thread, callbacks, capture
 * streams, DSP engines and nodes; arrows from a detection record to the callback and the first
 * captured buffer; counters of the audio held ready.
 */
std::string TraceJson(const RunFacts& facts);

}  // namespace sthal
