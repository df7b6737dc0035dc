#pragma once

#include <string>

#include "tools/sthal/facts/record.h"

namespace sthal {

/**
 * A run as one HTML page that needs nothing else, neither network nor script: the outcome and what
 * was wrong, what the microphones heard with the hotwords, detections and captures in it, the
 * states over time, the time that each step took, calls, the DSP's journal and the HAL's dumps.
 */
std::string ReportHtml(const RunFacts& facts);

}  // namespace sthal
