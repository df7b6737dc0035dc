#pragma once

#include <string>

#include "host/common/result.h"
#include "tools/sthal/facts/run_facts.h"

namespace sthal {

// The files that a run leaves; an empty path leaves one out.
struct RunFiles {
    std::string trace;   // For Perfetto.
    std::string report;  // For a browser.

    bool AreWanted() const { return !trace.empty() || !report.empty(); }
};

// Whether a file can be written, found out before the run: what is in it is left until then. The
// error says what can be done.
host::Result<void> CheckWritable(const std::string& path);

// Writes what was recorded of a run: a trace, and a page that shows the run.
host::Result<void> WriteRunFiles(const RunFacts& facts, const RunFiles& files);

}  // namespace sthal
