#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "tools/sthal/facts/run_record.h"
#include "tools/sthal/output/terminal.h"

namespace sthal {

/** The progress of a long operation, on a terminal only. */
class Progress {
  public:
    explicit Progress(Terminal& terminal) : terminal_(terminal) {}

    // Follows the download of a model: its call, and the chunks that the DSP takes. Any thread.
    void Follow(const Fact& fact);
    // How much of a recording has been heard.
    void ShowPlayback(size_t heard_frames, size_t frames);
    void Show(const std::string& what) { terminal_.ShowProgress("    " + what); }
    void End() { terminal_.EndProgress(); }

  private:
    Terminal& terminal_;
    std::atomic<size_t> model_bytes_{0};  // Of the download that is going on; 0: none.
    std::atomic<size_t> taken_bytes_{0};
};

}  // namespace sthal
