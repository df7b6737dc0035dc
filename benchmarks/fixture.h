#pragma once

#include <sched.h>

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
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

namespace bench {

namespace soundtrigger = ::vendor::quarno::brindlecove::audio::hal::soundtrigger;
namespace wire = soundtrigger::zyl;

constexpr int kIoHandle = 13;
constexpr size_t kKiB = 1024;
constexpr size_t kMiB = 1024 * kKiB;
constexpr size_t kBulkBytes = 4096;  // 1024 frames of two 16-bit channels.

// Notes when it is entered, which is what the HAL's callback and the bare loop are compared by.
class Arrival {
  public:
    void Mark();
    // When the next one came that nobody has waited for yet.
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
    // Makes the bytes readable once more.
    static void Rewind(const ::aidl::android::media::soundtrigger::SoundModel& model);
    int Load(const ::aidl::android::media::soundtrigger::SoundModel& model);
    int Load(virtual_dsp::Engine engine, const std::vector<uint8_t>& model) {
        return Load(Prepare(engine, model));
    }
    void Unload(int handle);
    void Start(int handle, int io_handle);
    void Stop(int handle);
    // Loads a model, starts it, has it detect, and binds a capture to the detection, whose audio
    // every HearBulk() then makes longer by one bulk. Returns the engine type to read with.
    int BeginCapture(virtual_dsp::Engine engine);
    // 1024 frames into the microphones.
    void HearBulk();
    // A command that the DSP gets by itself, without its node.
    void TellDsp(uint16_t id);

    // The platform's default level with a sink that only counts, or nothing at all.
    static void SetLogging(bool on);

  private:
    class Callback;

    std::unique_ptr<virtual_dsp::Board> board_;
    std::unique_ptr<soundtrigger::SoundTriggerHal> hal_;
    Arrival arrival_;
    std::shared_ptr<Callback> callback_;
    uint64_t heard_frames_ = 0;
    int models_ = 0;
};

// The bare counterpart of the control thread: waits in select for a pipe and, while it is told to
// watch, for the notification node, which it opens and closes as it is told. Reads the record,
// calls.
class BareListener {
  public:
    static constexpr char kThreadName[] = "BareListener";

    explicit BareListener(Arrival* arrival);
    ~BareListener();

    // One word through the pipe.
    void Watch(bool on);

  private:
    void Run();
    void OpenOrCloseNode();

    Arrival* const arrival_;
    int pipe_[2] = {-1, -1};
    std::atomic<bool> is_watching_{false};
    std::atomic<bool> is_stopped_{false};
    int node_ = -1;  // The thread's.
    std::thread thread_;
};

/**
 * For as long as it lives, the threads that are woken, the library's and the bare one, have the
 * second processor to themselves, and all others the first. Left alone, the kernel places them anew
 * again and again, and which of two loops gets the better places decides on half of its time.
 * Without a second processor it does nothing.
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
