#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "tools/sthal/output/terminal.h"
#include "tools/sthal/phone/playback.h"

namespace sthal {

/** Shows on a terminal how far what takes long has got. Nothing for what is over at once. */
class Progress {
  public:
    explicit Progress(Terminal& terminal) : terminal_(terminal) {}

    // A model of so many bytes begins to go down to the DSP, and a piece of it has arrived; the
    // latter from any thread.
    void BeginModel(size_t bytes);
    void AddModelPiece();
    // How much of a recording has been heard.
    void ShowPlayback(const Playback& playback);
    void Show(const std::string& what) { terminal_.ShowProgress("    " + what); }
    void End() {
        model_pieces_wanted_ = 0;
        terminal_.EndProgress();
    }

  private:
    Terminal& terminal_;
    std::atomic<size_t> model_pieces_{0};
    std::atomic<size_t> model_pieces_wanted_{0};
};

}  // namespace sthal
