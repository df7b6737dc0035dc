#pragma once

#include <string>

#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/output/run_files.h"

namespace CLI {
class App;
}

// What the commands that make a run have in common.
namespace sthal {

// Adds --trace and --report. Files that cannot be written are refused as wrong arguments.
void AddRunFileOptions(CLI::App& command, RunFiles& files);

// Adds --out, which is refused where no folder can be had.
void AddOutputOption(CLI::App& command, std::string& folder);

// 0 all is well, 3 there was nothing to detect, 130 interrupted, 1 something failed, be it only
// that the run's files could not be written.
int ExitStatus(const Verdict& verdict, bool is_written);

}  // namespace sthal
