#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/findings/run_findings.h"

namespace sthal {

/**
 * A run as one HTML page that needs nothing else, neither network nor script: the outcome and what
 * was wrong, what the microphones heard with the hotwords, detections and captures in it, the
 * states over time, the time that each step took, calls, the DSP's journal and the HAL's dumps.
 */
std::string ReportHtml(const RunFacts& facts);

// page.html, and what it is filled in with but for the date.
const std::string& PageTemplate();
nlohmann::json PageData(const RunFacts& facts, const RunFindings& found);

}  // namespace sthal
