#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "audio/hal/aidl/soundtrigger/export.h"
#include "audio/hal/aidl/soundtrigger/pcm_processor.h"
#include "audio/hal/utils/dumpsys/dumpsys.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

class SoundTriggerHal;

/**
 * The driver behind a capture stream of the audio HAL: delivers the audio that the DSP kept around
 * a detection, or, to an internal forced stream, what it hears from now on.
 *
 *   built --Start()--> bound to a detection --Read()...--> --Stop()--> gone
 *
 * Read, Stop, GetPosition and the destructor take this object's lock, and the HAL's inside it;
 * Start takes only the HAL's. The HAL must outlive this object.
 */
class SOUND_TRIGGER_EXPORT SoundTriggerDriverOperations {
  public:
    SoundTriggerDriverOperations(SoundTriggerHal* hal, int io_handle, int channel_count,
                                 bool is_internal_force);

    /**
     * An internal forced stream ends whichever internal recognition runs, its successor's, too:
     * destroy it before the next one is built.
     */
    virtual ~SoundTriggerDriverOperations();

    SoundTriggerDriverOperations(const SoundTriggerDriverOperations&) = delete;
    SoundTriggerDriverOperations& operator=(const SoundTriggerDriverOperations&) = delete;

    virtual void Dump(const utils::dumpsys::DumpsysInfo& info);

    /** Finds the detection to read. False when there is none for this stream. */
    virtual bool Start();

    /** Ends the internal recognition of an internal forced stream. Always true. */
    virtual bool Stop() EXCLUDES(lock_);

    /** Capture only: -EINVAL. */
    virtual int Write(unsigned char* buffer, int size);

    /**
     * Reads captured audio, 16-bit at 16 kHz; a stream of more than 2 channels gets what one of 2
     * does. Blocks as SoundTriggerHal::ReadBuffer does, and 64 ms while the DSP is offline.
     *
     * @param buffer  Nothing is written beyond `size` bytes.
     * @param size    In bytes. A negative one counts as positive.
     * @return Bytes delivered: silence when the DSP fails or is offline. -ENODEV without a HAL;
     *         -EINVAL for a null buffer, for INT_MIN, and for a channel count below 1 or too large.
     */
    virtual int Read(unsigned char* buffer, int size) EXCLUDES(lock_);

    /**
     * @param frames   Delivered so far.
     * @param time_ns  Derived from the hotword's instant, in kernel boot time; the steady clock's
     *                 time now while the instant is not known. An internal forced stream that reads
     *                 before the control thread has the DSP's record gets the hotword before it.
     * @return False, with the arguments left alone, without a HAL.
     */
    virtual bool GetPosition(long& frames, long& time_ns) EXCLUDES(lock_);

    /** Frames that one read should ask for: 1024, which last 64 ms. */
    virtual int GetBulkSize() const;

    /** Bytes of one frame. */
    virtual int GetFrameSize() const;

    /** The DSP sets the latency; nothing to do. */
    virtual void SetLatency(int latency_ms);

    /** Installs a processor for what Read delivers. Before SetUpPcmConfig and the first Read. */
    void SetPcmProcessor(std::unique_ptr<PcmProcessor> processor) EXCLUDES(lock_);

    /** Tells the processor, if there is one, what audio to expect. */
    void SetUpPcmConfig() EXCLUDES(lock_);

  private:
    int ReadFromHal(unsigned char* buffer, unsigned int size) REQUIRES(lock_);
    void AdvancePosition(int64_t frames) REQUIRES(lock_);

    std::mutex lock_;
    SoundTriggerHal* const hal_;
    const int io_handle_;
    const int channel_count_;
    std::atomic<int64_t> total_transmit_frames_{0};  // Dump reads it without `lock_`.
    int64_t timestamp_ns_ GUARDED_BY(lock_) = 0;
    const bool is_internal_force_;
    std::unique_ptr<PcmProcessor> pcm_processor_ GUARDED_BY(lock_);
    std::atomic<int> engine_type_{-1};  // Start writes it without `lock_`.
};

/** Makes the driver of a stream that the audio HAL opens. */
class SOUND_TRIGGER_EXPORT SoundTriggerDriverOperationsBuilder {
  public:
    /** Starts internal recognition first for an internal forced stream; null when that fails. */
    std::unique_ptr<SoundTriggerDriverOperations> Build();

    SoundTriggerHal* hal = nullptr;
    int io_handle = 0;
    int channel_count = 0;
    bool is_internal_force = false;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
