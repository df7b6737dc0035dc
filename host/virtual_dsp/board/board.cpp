#include "host/virtual_dsp/board/board.h"

namespace virtual_dsp {
namespace {

MicrophoneOptions WithClockOf(const DspOptions& dsp, MicrophoneOptions microphone) {
    if (!microphone.boottime_ns) microphone.boottime_ns = dsp.boottime_ns;
    return microphone;
}

}  // namespace

Board::Board(const BoardOptions& options)
    : dsp_(options.dsp), server_({dsp_, faults_, wake_locks_, tuning_}, options.directory) {
    dsp_.SetReadinessListener([this](Readiness) {
        if (dsp_.IsUp()) {
            server_.Wake();
        } else {
            server_.OnDspDown();
        }
    });
    faults_.SetReleaseListener([this] { server_.Wake(); });
    microphone_.emplace(dsp_, WithClockOf(options.dsp, options.microphone));
}

host::Result<std::unique_ptr<Board>> Board::Create(const BoardOptions& options) {
    std::unique_ptr<Board> board(new Board(options));
    if (const auto started = board->server_.Start(); !started.ok()) {
        return host::Error(started.error());
    }
    return board;
}

}  // namespace virtual_dsp
