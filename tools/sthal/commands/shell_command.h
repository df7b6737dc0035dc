#pragma once

#include <cstdint>
#include <string>

#include "tools/sthal/output/run_files.h"

namespace CLI {
class App;
}

namespace sthal {

/** `sthal shell`: an interactive session on the virtual board. */
class ShellCommand {
  public:
    explicit ShellCommand(CLI::App& app);

    // Whether no board is needed, since only the verbs are asked for.
    bool WantsHelpOnly() const { return wants_verbs_; }
    // To be called on the board, unless it is for help. The exit status, as its help tells it.
    int Run() const;

  private:
    bool wants_verbs_ = false;
    double speed_ = 1.0;
    uint32_t seed_ = 1;
    std::string output_folder_ = ".";
    RunFiles files_;
};

}  // namespace sthal
