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

    bool IsChosen() const { return chosen_; }
    // On the board (virtual_dsp::EnterBoard), with interrupts caught. The exit status: 0 when it
    // was told to end, 1 when the nodes cannot be served, 2 for a wrong fault rule.
    int Run() const;

  private:
    bool chosen_ = false;
    bool control_ = false;
    double speed_ = 1.0;
    std::string directory_;
    std::vector<std::string> faults_;
};

}  // namespace sthal
