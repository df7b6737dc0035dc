#pragma once

#include <sched.h>

#include <aidl/android/media/soundtrigger/SoundModel.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/virtual_dsp/board/board.h"
#include "tests/support/recording_callback.h"

namespace bench {

namespace soundtrigger = ::vendor::quarno::brindlecove::audio::hal::soundtrigger;
namespace wire = soundtrigger::zyl;

constexpr int kIoHandle = 13;
constexpr size_t kKiB = 1024;
constexpr size_t kMiB = 1024 * kKiB;
constexpr size_t kBulkBytes = 4096;  // 1024 frames of two 16-bit channels.

// Notes the time at which a detection arrives, in the HAL's callback and in the bare loop. The two
// are compared by these times.
class Arrival {
  public:
    void Mark();
    // Waits for the next Mark() and returns its time. A Mark() that came before counts, too, if
    // nobody has waited for it.
    int64_t Wait();

  private:
    std::mutex lock_;
    std::condition_variable arrived_;
    int64_t at_ns_ = 0;  // 0: nothing has come.
};

// The board and the HAL on it, online, with logging that only counts.
class Fixture {
  public:
    Fixture();
    ~Fixture();

    soundtrigger::SoundTriggerHal& hal() { return *hal_; }
    virtual_dsp::Dsp& dsp() { return board_->dsp(); }
    Arrival& callback() { return arrival_; }

    // A model of `bytes` bytes for the engine.
    static std::vector<uint8_t> Model(virtual_dsp::Engine engine, size_t bytes);
    // The model as the framework hands it over, in a descriptor of its own.
    ::aidl::android::media::soundtrigger::SoundModel Prepare(virtual_dsp::Engine engine,
                                                             const std::vector<uint8_t>& model);
    // Rewinds the model's descriptor, so that the bytes can be read again.
    static void Rewind(const ::aidl::android::media::soundtrigger::SoundModel& model);
    int Load(const ::aidl::android::media::soundtrigger::SoundModel& model);
    int Load(virtual_dsp::Engine engine, const std::vector<uint8_t>& model) {
        return Load(Prepare(engine, model));
    }
    void Unload(int handle);
    void Start(int handle, int io_handle);
    void Stop(int handle);
    // Loads a model, starts it, makes it detect, and binds a capture to the detection. Every
    // HearBulk() then adds one bulk to the captured audio. Returns the engine type to read with.
    int BeginCapture(virtual_dsp::Engine engine);
    // Feeds 1024 frames into the microphones.
    void HearBulk();
    // Gives the DSP a command directly, not through its node.
    void TellDsp(uint16_t id);

    // On: the platform's default level, with a sink that only counts. Off: no logging.
    static void SetLogging(bool on);

  private:
    std::unique_ptr<virtual_dsp::Board> board_;
    std::unique_ptr<soundtrigger::SoundTriggerHal> hal_;
    Arrival arrival_;
    std::shared_ptr<soundtrigger::RecordingCallback> callback_;
    uint64_t heard_frames_ = 0;
    int models_ = 0;
};

// The bare counterpart of the control thread. Waits in select for a pipe and, between Watch(true)
// and Watch(false), for the notification node, which it opens and closes at these calls. Reads the
// record, then marks the arrival.
class BareListener {
  public:
    static constexpr char kThreadName[] = "BareListener";

    explicit BareListener(Arrival* arrival);
    ~BareListener();

    // Sends one word through the pipe.
    void Watch(bool on);

  private:
    void Run();
    void OpenOrCloseNode();

    Arrival* const arrival_;
    int pipe_[2] = {-1, -1};
    std::atomic<bool> is_watching_{false};
    std::atomic<bool> is_stopped_{false};
    int node_ = -1;  // Only the thread uses it.
    std::thread thread_;
};

/**
 * While it lives, the threads that are woken (the library's and the bare one) have the second
 * processor to themselves, and all other threads have the first. Otherwise the kernel moves threads
 * again and again, and half of a loop's time depends on where its threads run. Without a second
 * processor it does nothing.
 */
class PinnedThreads {
  public:
    PinnedThreads();
    ~PinnedThreads();
    PinnedThreads(const PinnedThreads&) = delete;
    PinnedThreads& operator=(const PinnedThreads&) = delete;

  private:
    cpu_set_t before_;
};

}  // namespace bench
