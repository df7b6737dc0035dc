#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sthal {

/**
 * `sthal dsp`: serves the device nodes and nothing else, so that the DSP is a process apart from
 * the one that runs the HAL, and can be killed for real.
 *
 * Both have to be on the same board: the other one starts this one from there, or both are started
 * in the shell that `run_on_board bash` gives. Nodes that an earlier one left behind when it was
 * killed are taken away first.
 */
class DspCommand {
  public:
    explicit DspCommand(CLI::App& app);

    // To be called on the board, with interrupts caught. The exit status, as its help tells it.
    int Run() const;

  private:
    bool control_ = false;
    double speed_ = 1.0;
    std::string directory_;
    std::vector<std::string> faults_;
};

}  // namespace sthal
