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

    bool IsChosen() const { return is_chosen_; }
    // To be called on the board. The exit status: 0 all expectations held, 1 one did not, 2 the
    // file is wrong or cannot be had, 3 there was nothing in the recording to be detected, 130
    // interrupted.
    int Run() const;

  private:
    bool is_chosen_ = false;
    std::string file_;
    std::optional<double> speed_;
    std::optional<uint32_t> seed_;
    std::vector<std::string> values_;  // NAME=TEXT, instead of the scenario's.
    std::string output_folder_ = ".";
    RunFiles files_;
};

}  // namespace sthal
