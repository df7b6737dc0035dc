#pragma once

#include <android-base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/framework_monitor/framework_calls.h"
#include "host/framework_monitor/violation.h"

namespace framework {

/**
 * Stands between a framework and the HAL, and notices what makes the framework restart a HAL. Calls
 * and events go through it unchanged.
 *
 * Calls that overlap are judged by what is certain: an event is a violation only if no order of
 * them allows it. The model handles are those that were loaded through this monitor.
 *
 * Thread-safe, and itself without a lock while it calls either side. Outlives the HAL's models.
 */
class FrameworkMonitor {
  public:
    using SoundModel = FrameworkCalls::SoundModel;
    using PhraseSoundModel = FrameworkCalls::PhraseSoundModel;
    using RecognitionConfig = FrameworkCalls::RecognitionConfig;
    using Callback = FrameworkCalls::Callback;

    using Rule = framework::Rule;
    using Violation = framework::Violation;

    // Called for each violation when it is noticed, on the thread of the callback.
    using Listener = std::function<void(const Violation&)>;

    // A callback in which the HAL's lock is not to be had for `lock_deadline` is one too many.
    explicit FrameworkMonitor(
            std::unique_ptr<FrameworkCalls> calls,
            std::chrono::milliseconds lock_deadline = std::chrono::milliseconds(5000),
            Listener listener = {});
    ~FrameworkMonitor();
    FrameworkMonitor(const FrameworkMonitor&) = delete;
    FrameworkMonitor& operator=(const FrameworkMonitor&) = delete;

    // The framework's calls, as SoundTriggerHal's.
    int LoadSoundModel(const SoundModel& model, std::shared_ptr<Callback> callback, int* handle);
    int LoadPhraseSoundModel(const PhraseSoundModel& model, std::shared_ptr<Callback> callback,
                             int* handle);
    int UnloadSoundModel(int handle);
    int StartRecognition(int handle, int io_handle, const RecognitionConfig& config);
    int StopRecognition(int handle);
    int ForceRecognitionEvent(int handle);

    // To be called around the report that the DSP is online: the HAL then starts every model anew
    // that has not been stopped, also one whose event has come.
    void BeginDspRestart();
    void EndDspRestart();

    std::vector<Violation> violations() const;

  private:
    friend class MonitoredCallback;

    struct Model {
        uint64_t generation = 0;      // Tells it from others that had the handle.
        bool is_armed = false;        // An event may come.
        int starts_running = 0;       // Calls that have begun and not returned.
        uint64_t last_start = 0;      // When the latest began.
        uint64_t last_start_end = 0;  // When the latest that succeeded returned.
        // Events that may come beside those of a start: one for each restart of the DSP, and one
        // for each start that was armed before another one began that is still running.
        int restarts = 0;
        int earlier_starts = 0;
        Rule disarmed_by = Rule::kNotStarted;  // What an event now would break.
        Call last_call = {};
    };

    // Makes a load with the callback that it is given.
    using Load = std::function<int(std::shared_ptr<Callback> callback)>;
    int WatchLoad(const Load& load, Call::Kind kind, std::shared_ptr<Callback> callback,
                  int* handle) EXCLUDES(lock_);
    // A call or event of this thread that has just come.
    Call Number(Call::Kind kind, int handle) REQUIRES(lock_);
    // Around each event on its way to the framework. The lock is tried all the while and judged
    // at the end, so that the framework gets its event no later. BeginEvent returns what EndEvent
    // needs.
    uint64_t BeginEvent(Call::Kind kind, int handle) EXCLUDES(lock_);
    void EndEvent(Call::Kind kind, int handle, uint64_t probe) EXCLUDES(lock_);
    std::optional<Violation> JudgeEvent(const Call& event) REQUIRES(lock_);
    // The probe's thread. False when it is to end.
    bool WaitForProbe(uint64_t* wanted) EXCLUDES(lock_);
    void RunProbes() EXCLUDES(lock_);

    const std::unique_ptr<FrameworkCalls> calls_;
    const std::chrono::milliseconds lock_deadline_;
    const Listener listener_;

    mutable std::mutex lock_;
    uint64_t clock_ GUARDED_BY(lock_) = 0;  // Counts calls and events.
    int loads_running_ GUARDED_BY(lock_) = 0;
    int dsp_restarts_begun_ GUARDED_BY(lock_) = 0;
    int dsp_restarts_running_ GUARDED_BY(lock_) = 0;
    std::map<int, Model> models_ GUARDED_BY(lock_);
    std::map<int, Call> unloaded_ GUARDED_BY(lock_);  // The unloads of handles that are free.
    std::vector<Violation> violations_ GUARDED_BY(lock_);

    // Tries the HAL's lock while a callback waits for it.
    std::condition_variable probe_changed_;
    uint64_t probes_wanted_ GUARDED_BY(lock_) = 0;
    uint64_t probes_done_ GUARDED_BY(lock_) = 0;
    bool is_stopping_ GUARDED_BY(lock_) = false;
    std::thread probe_;  // Last: it uses all of the above.
};

}  // namespace framework
