#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "tools/audio/sound.h"
#include "tools/sthal/phone/phone.h"

namespace sthal {

struct CaptureOptions {
    int io_handle = 0;
    int channels = 2;
    bool is_internal_force = false;
};

/**
 * A capture stream as the audio HAL opens one, read to the end and kept. Prints position and time
 * stamp as it goes.
 */
class Capture {
  public:
    // Opens and starts the stream; an error says which of the two was refused.
    static audio::Result<std::unique_ptr<Capture>> Open(Phone& phone,
                                                        const CaptureOptions& options);
    ~Capture();

    // Reads one bulk of 1024 frames. False on an error of the stream, which is printed.
    bool ReadOnce();
    // Ends the stream.
    void Close();

    const audio::Sound& sound() const { return sound_; }
    // Frames that one ReadOnce() reads.
    size_t bulk_frames() const { return static_cast<size_t>(stream_->GetBulkSize()); }
    // What GetPosition told after the first read: the hotword's instant, in boot time.
    int64_t first_position_ns() const { return first_position_ns_; }

  private:
    Capture(Phone& phone, const CaptureOptions& options);
    // Notes the opening, or why there was none, in the run's record.
    void RecordOpening(const std::string& error);
    void RecordRead(int64_t begin_ns, int result, bool is_silent);

    Phone& phone_;
    const CaptureOptions options_;
    std::unique_ptr<soundtrigger::SoundTriggerDriverOperations> stream_;
    audio::Sound sound_;
    int64_t first_position_ns_ = 0;
    int64_t opened_ns_ = 0;
    bool has_audio_ = false;  // Something else than silence came.
    size_t recorded_as_ = 0;
    size_t next_report_frame_ = 0;
};

}  // namespace sthal
