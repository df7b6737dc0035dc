#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/common/result.h"
#include "host/virtual_dsp/board/microphone.h"
#include "host/virtual_dsp/dsp/dsp.h"
#include "host/virtual_dsp/nodes/faults.h"
#include "host/virtual_dsp/nodes/fuse_server.h"
#include "host/virtual_dsp/nodes/node_table.h"
#include "host/virtual_dsp/nodes/tuning_image.h"
#include "host/virtual_dsp/nodes/wake_locks.h"

namespace virtual_dsp {

struct BoardOptions {
    DspOptions dsp;
    MicrophoneOptions microphone;  // Uses the DSP's clock unless one is set.
    std::string directory = kBoardDirectory;
};

// The virtual board: a DSP, its microphone, and the device nodes that programs reach it through.
// The nodes exist from Create() to the destructor. A directory has one board at a time.
//
// Callbacks that the caller hands in (the DSP's clock, the journal's listener) may run on the
// thread that serves the nodes: they must not use the nodes themselves.
class Board {
  public:
    // Fails when the nodes cannot be served: there is no /dev/fuse, the process is not on the board
    // (see enter_board.h), or another board is in the same directory.
    [[nodiscard]] static host::Result<std::unique_ptr<Board>> Create(const BoardOptions& options);
    // Calls in progress on the nodes end with an error.
    ~Board() = default;

    Dsp& dsp() { return dsp_; }
    FaultPlan& faults() { return faults_; }
    Microphone& microphone() { return *microphone_; }
    WakeLocks& wake_locks() { return wake_locks_; }

    // The contents of the tuning file that programs find. At first there is no such file.
    void SetTuningFile(std::vector<uint8_t> contents) { tuning_.Set(std::move(contents)); }
    void RemoveTuningFile() { tuning_.Remove(); }

  private:
    explicit Board(const BoardOptions& options);

    // The order matters: the microphone stops before the server does, and begins when the DSP has
    // its listener.
    Dsp dsp_;
    FaultPlan faults_;
    WakeLocks wake_locks_;
    TuningImage tuning_;
    FuseServer server_;
    std::optional<Microphone> microphone_;
};

}  // namespace virtual_dsp
