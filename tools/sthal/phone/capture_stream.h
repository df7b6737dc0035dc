#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "host/common/result.h"
#include "tools/audio/sound.h"
#include "tools/sthal/phone/phone.h"

namespace sthal {

struct CaptureOptions {
    int io_handle = 0;
    int channels = 2;
    bool is_internal = false;  // A capture without a detection.
};

/**
 * A capture stream as the audio HAL opens one. Keeps all that it reads, and notes opening, reads
 * and closing in the run's record. Used by one thread.
 */
class CaptureStream {
  public:
    // Opens and starts the stream.
    static host::Result<std::unique_ptr<CaptureStream>, StreamRefusal> Open(
            Phone& phone, RunRecord& record, const CaptureOptions& options);
    ~CaptureStream();
    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    // Reads one bulk of 1024 frames. False on an error of the stream.
    bool ReadOnce();
    // Ends the stream.
    void Close();

    const audio::Sound& sound() const { return sound_; }
    // What GetPosition told after the first read: the hotword's timestamp, in boot time.
    int64_t first_timestamp_ns() const { return first_timestamp_ns_; }

  private:
    CaptureStream(Phone& phone, RunRecord& record, const CaptureOptions& options);
    StreamRefusal BuildAndStart();

    Phone& phone_;
    RunRecord& record_;
    const CaptureOptions options_;
    std::unique_ptr<soundtrigger::SoundTriggerDriverOperations> stream_;
    audio::Sound sound_;
    int64_t first_timestamp_ns_ = 0;
    int64_t begin_ns_ = 0;
    int64_t opened_ns_ = 0;
    bool has_audio_ = false;  // Something else than silence came.
    size_t index_ = 0;        // In the record.
};

}  // namespace sthal
