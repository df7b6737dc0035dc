#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "tools/audio/compare.h"
#include "tools/sthal/phone/capture.h"

namespace sthal {

/**
 * A capture stream that is read on a thread of its own, as the audio HAL does, while the framework
 * goes on with something else.
 *
 * Used by one thread. What was captured counts once it has ended.
 */
class CaptureJob {
  public:
    // Reads `frames`, or until Stop() without. `file`: a WAV is written there at the end.
    CaptureJob(Phone& phone, std::unique_ptr<Capture> capture, std::optional<size_t> frames,
               bool is_ambient, std::string file);
    ~CaptureJob() { Stop(); }
    CaptureJob(const CaptureJob&) = delete;
    CaptureJob& operator=(const CaptureJob&) = delete;

    bool IsFinished() const { return is_finished_; }
    // Ends it after the read under way. Returns what is wrong with the file, or nothing.
    std::string Stop();

    // How the capture, or its first `frames`, lies within what the microphones have heard since
    // the phone was started.
    audio::Comparison CompareWithMicrophones(size_t frames = SIZE_MAX) const;
    const audio::Sound& sound() const { return capture_->sound(); }

  private:
    void Read(std::optional<size_t> frames);

    Phone& phone_;
    const std::unique_ptr<Capture> capture_;
    const bool is_ambient_;
    const std::string file_;
    const uint64_t opened_at_;  // The microphones' frame.
    bool is_written_ = false;
    std::atomic<bool> stop_{false};
    std::atomic<bool> is_finished_{false};
    std::thread thread_;  // Last: it uses all of the above.
};

}  // namespace sthal
