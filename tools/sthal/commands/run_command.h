#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/sthal/output/run_files.h"

namespace CLI {
class App;
}

namespace sthal {

/** `sthal run`: carries out a scenario and says whether its expectations held. */
class RunCommand {
  public:
    explicit RunCommand(CLI::App& app);

    // To be called on the board, with interrupts caught. The exit status, as its help tells it.
    int Run() const;

  private:
    std::string file_;
    std::optional<double> speed_;
    std::optional<uint32_t> seed_;
    std::vector<std::string> values_;  // NAME=TEXT, instead of the scenario's.
    std::string output_folder_ = ".";
    RunFiles files_;
};

}  // namespace sthal
