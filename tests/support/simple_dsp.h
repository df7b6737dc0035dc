#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The operations of the DSP, without the detections. */
enum class DspOp {
    kLoad,
    kUnload,
    kStart,
    kStop,
    kForce,
    kInternal,
    kEraser,
    kNeuralAec,
    kMicSwap,
    kReference,
    kApProcess,
    kTuning,
    kQuery,
    kRead,  // Of captured audio.
};

/** One call: the argument is an engine, a switch, a tuning type, or 0. */
struct DspCall {
    DspOp op;
    int argument;

    auto operator<=>(const DspCall&) const = default;
};

/** The state of the DSP, as far as the layers above can set it. */
struct DspView {
    enum class State { kIdle, kArmedWithoutModel, kDetecting, kDetected };
    struct EngineView {
        State state = State::kIdle;
        uint32_t model = 0;  // The CRC of its bytes; 0 for none.

        bool operator==(const EngineView&) const = default;
    };

    EngineView& engine(int number) { return number == 1 ? hotword : ambient; }

    bool up = true;
    EngineView hotword;
    EngineView ambient;
    bool eraser = false;
    bool neural_aec = false;
    bool mic_swap = false;
    bool dock_reference = false;
    bool dock_ap_process = false;
    int tuning = 0;  // The type last sent.

    bool operator==(const DspView&) const = default;
};

std::string ToText(const DspView& view);

struct DspRecord {
    int engine;
    std::string payload;  // The number of the engine's starts up to the detection.
};

/**
 * A small DSP: two engines, each with one model, one detection per start, and the switches. A stop,
 * an unload and a start after a detection drop the engine's unread records. It refuses what it does
 * not know with -EINVAL and, while it is down, everything with -ENODEV. Not thread-safe.
 */
class SimpleDsp {
  public:
    // `model` is the CRC of the model that a kLoad brings; 0 for no bytes.
    int Answer(DspCall call, uint32_t model = 0);
    // The engine hears its model. Nothing happens unless it is detecting.
    void Detect(int engine);
    // The next `times` such calls do nothing and return -EIO.
    void Fail(DspCall call, int times);
    // The next `times` calls of an operation return `status`, whatever their argument is.
    void FailAny(DspOp op, int times, int status) { any_faults_[op] = {times, status}; }
    void Mend() { any_faults_.clear(); }
    // Forgets all but the faults.
    void Crash();
    void Boot() { view_.up = true; }

    const DspView& view() const { return view_; }
    // Calls that have failed because of Fail().
    uint64_t failures() const { return failures_; }
    bool has_record() const { return !records_.empty(); }
    std::optional<DspRecord> TakeRecord();

  private:
    struct Fault {
        int times = 0;
        int status = 0;
    };

    int CarryOut(DspCall call);
    int Start(int engine);
    void Stop(int engine);
    void Raise(int engine);
    void DropRecords(int engine);

    DspView view_;
    std::deque<DspRecord> records_;
    std::map<int, uint64_t> starts_;
    std::map<int, uint32_t> staged_;  // Models that were received but not loaded, by engine.
    std::map<DspCall, int> faults_;
    std::map<DspOp, Fault> any_faults_;
    uint64_t failures_ = 0;
};

/**
 * A SimpleDsp behind the HAL's adapter interface, for a HAL and other threads at once. The
 * notification descriptor is readable while records are unread. Outlives its adapters.
 */
class SharedSimpleDsp {
  public:
    SharedSimpleDsp();
    ~SharedSimpleDsp();
    SharedSimpleDsp(const SharedSimpleDsp&) = delete;
    SharedSimpleDsp& operator=(const SharedSimpleDsp&) = delete;

    std::unique_ptr<SoundTriggerAdapter> MakeAdapter();

    // Runs `action` on the DSP while nothing else uses it.
    template <typename Action>
    auto With(const Action& action) {
        std::lock_guard lock(lock_);
        const Finally sync{this};
        return action(dsp_);
    }

    // The next read of a record fails; the record stays.
    void FailNextRead(int status);
    // Whether reads of audio get none in time.
    void SetAudioFault(bool is_silent);
    // Lets other threads run in the middle of each call. Call it before there are other threads.
    void MakeSlow() { is_slow_ = true; }
    // Calls that overlapped although the HAL has to make them under its lock.
    int overlaps() const;

  private:
    friend class SimpleAdapter;

    // Keeps the descriptor in step with the records.
    struct Finally {
        explicit Finally(SharedSimpleDsp* shared) : owner(shared) {}
        ~Finally() { owner->UpdateReadiness(); }
        SharedSimpleDsp* const owner;
    };

    int Call(DspCall call, uint32_t model = 0);
    int ReadRecord(int* engine, std::string* payload);
    int ReadAudio(char* buffer, unsigned size);
    void UpdateReadiness();

    bool is_slow_ = false;
    mutable std::mutex lock_;
    // Under lock_.
    SimpleDsp dsp_;
    int event_fd_;
    bool is_readable_ = false;
    int read_fault_ = 0;
    bool audio_fault_ = false;
    int calls_in_progress_ = 0;
    int overlaps_ = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
