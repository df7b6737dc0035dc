#pragma once

#include <string>

#include "tools/sthal/facts/record.h"

namespace CLI {
class App;
}

namespace sthal {

// The files that a run leaves; an empty path leaves one out.
struct RunFiles {
    std::string trace;   // For Perfetto.
    std::string report;  // For a browser.

    bool AreWanted() const { return !trace.empty() || !report.empty(); }
};

// Adds --trace and --report to a command. Files that cannot be written are refused as wrong
// arguments.
void AddRunFileOptions(CLI::App& command, RunFiles& files);

// Adds --out to a command, which is refused where no folder can be had.
void AddOutputOption(CLI::App& command, std::string& folder);

/**
 * Writes what a run has recorded: a trace, and a page that shows the run. The record must have been
 * enabled before the run.
 *
 * @return What is wrong with a file and what can be done, or nothing.
 */
std::string WriteRunFiles(const RunRecord& record, const RunFiles& files);

}  // namespace sthal
