#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "host/virtual_dsp/dsp/engine.h"
#include "host/virtual_dsp/dsp/microphone_history.h"

namespace virtual_dsp {

// What one audio node delivers: from the frame at which a capture begins, first what the history
// holds, then what the microphones hear. The hotword node carries both channels as 16-bit PCM, the
// ambient node the first one as mu-law. Not thread-safe.
class Capture {
  public:
    explicit Capture(PcmPort port) : port_(port) {}

    // Audio is kept for `owner` from frame `first` on; whatever was being captured is dropped.
    void Begin(Engine owner, uint64_t first);
    void End() {
        owner_.reset();
        ++ended_;
    }
    // How many captures have been ended: a reader finds out that its own was among them.
    uint64_t ended() const { return ended_; }
    std::optional<Engine> owner() const { return owner_; }

    size_t BytesReady(const MicrophoneHistory& history) const;

    struct ReadResult {
        size_t bytes = 0;
        uint64_t first = 0;  // Frame that the bytes begin with.
        uint64_t lost = 0;   // Frames before it that the history had forgotten by then.
    };
    // Delivers whole frames only, as many as there are and fit.
    ReadResult Read(const MicrophoneHistory& history, std::span<uint8_t> out);

    uint64_t bytes_delivered() const { return bytes_delivered_; }

  private:
    size_t FrameBytes() const {
        return port_ == PcmPort::kHotword ? sizeof(int16_t) * wire::kHotwordChannels : 1;
    }

    const PcmPort port_;
    std::optional<Engine> owner_;
    uint64_t next_ = 0;  // Frame to be delivered next.
    uint64_t bytes_delivered_ = 0;
    uint64_t ended_ = 0;
};

}  // namespace virtual_dsp
