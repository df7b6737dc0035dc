#pragma once

#include <string>

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

}  // namespace sthal
