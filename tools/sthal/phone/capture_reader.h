#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "host/common/result.h"
#include "tools/audio/compare.h"
#include "tools/sthal/phone/capture_stream.h"

namespace sthal {

/**
 * Reads a capture stream on a thread of its own, as the audio HAL does, while the framework goes on
 * with something else.
 *
 * Used by one thread. What was captured counts once it has ended.
 */
class CaptureReader {
  public:
    // When to stop reading by oneself.
    struct Until {
        std::optional<size_t> frames{};  // So many were read.
        std::shared_ptr<const PlayingRecording>
                end_of{};  // The capture has caught up with its end.
    };

    // `file`: a WAV is written there at the end; empty: none is.
    CaptureReader(Phone& phone, std::unique_ptr<CaptureStream> stream, Until until, bool is_ambient,
                  std::string file);
    ~CaptureReader();
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    bool IsFinished() const { return is_finished_; }
    // Ends it after the read under way, and writes the file.
    host::Result<void> Stop();

    // How the capture, or its first `frames`, lies within what was heard; an ambient one after the
    // same companding. Frames count from the beginning of `heard`.
    audio::Comparison CompareWith(const audio::Sound& heard, size_t frames = SIZE_MAX) const;
    // The same within what the microphones have heard since the phone was started; frames count as
    // the DSP counts them.
    audio::Comparison CompareWithMicrophones(size_t frames = SIZE_MAX) const;
    const CaptureStream& stream() const { return *stream_; }
    const std::string& file() const { return file_; }
    const audio::Sound& sound() const { return stream_->sound(); }

  private:
    void ReadUntil(const Until& until);
    size_t FramesUntilEndOf(const PlayingRecording& playback) const;

    Phone& phone_;
    const std::unique_ptr<CaptureStream> stream_;
    const bool is_ambient_;
    const std::string file_;
    const uint64_t opened_at_;  // The microphones' frame.
    bool is_written_ = false;
    std::atomic<bool> stop_{false};
    std::atomic<bool> is_finished_{false};
    std::thread thread_;  // Last: it uses all of the above.
};

}  // namespace sthal
