#pragma once

#include <aidl/android/hardware/soundtrigger3/ISoundTriggerHwCallback.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The HAL as the framework sees it: what the monitor watches. */
class FrameworkCalls {
  public:
    using SoundModel = SoundTriggerHal::SoundModel;
    using PhraseSoundModel = SoundTriggerHal::PhraseSoundModel;
    using RecognitionConfig = SoundTriggerHal::RecognitionConfig;
    using Callback = SoundTriggerHal::ISoundTriggerHwCallback;

    virtual ~FrameworkCalls() = default;
    virtual int LoadSoundModel(const SoundModel& model, std::shared_ptr<Callback> callback,
                               int* handle) = 0;
    virtual int LoadPhraseSoundModel(const PhraseSoundModel& model,
                                     std::shared_ptr<Callback> callback, int* handle) {
        return LoadSoundModel(model.common, std::move(callback), handle);
    }
    virtual int UnloadSoundModel(int handle) = 0;
    virtual int StartRecognition(int handle, int io_handle, const RecognitionConfig& config) = 0;
    virtual int StopRecognition(int handle) = 0;
    virtual int ForceRecognitionEvent(int handle) = 0;
    // Takes the HAL's lock, changes nothing, and releases it.
    virtual void PassThroughLock() = 0;
};

/** The real one. */
class HalCalls final : public FrameworkCalls {
  public:
    explicit HalCalls(SoundTriggerHal* hal) : hal_(hal) {}

    int LoadSoundModel(const SoundModel& model, std::shared_ptr<Callback> callback,
                       int* handle) override {
        return hal_->LoadSoundModel(model, std::move(callback), handle);
    }
    int LoadPhraseSoundModel(const PhraseSoundModel& model, std::shared_ptr<Callback> callback,
                             int* handle) override {
        return hal_->LoadPhraseSoundModel(model, std::move(callback), handle);
    }
    int UnloadSoundModel(int handle) override { return hal_->UnloadSoundModel(handle); }
    int StartRecognition(int handle, int io_handle, const RecognitionConfig& config) override {
        return hal_->StartRecognition(handle, 0, io_handle, config);
    }
    int StopRecognition(int handle) override { return hal_->StopRecognition(handle); }
    int ForceRecognitionEvent(int handle) override { return hal_->ForceRecognitionEvent(handle); }
    void PassThroughLock() override { hal_->OnSourceMetadataChanged("no usecase", {}); }

  private:
    SoundTriggerHal* const hal_;
};

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

    enum class Rule {
        kUnknownHandle,               // An event for a handle that was never given out.
        kNotStarted,                  // An event for a model that was never started.
        kSecondEvent,                 // A second event without a new start.
        kSecondEventAfterDspRestart,  // The same, and the HAL had restarted its detections.
        kEventAfterStop,              // An event after a stop of its model has returned.
        kEventAfterUnload,            // The same after an unload.
        kCallbackUnderLock,           // A callback that is made while the HAL's lock is held.
    };

    struct Violation {
        Rule rule;
        int handle;
        std::string text;  // Rule, thread, and the two calls that do not go together.
    };

    // Is told of each violation when it is noticed, from the thread of the callback.
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
        uint64_t generation;      // Tells it from others that had the handle.
        bool is_armed = false;    // An event may come.
        int starts_running = 0;   // Calls that have begun and not returned.
        uint64_t last_start = 0;  // When the latest began.
        int restarts = 0;         // Of the DSP since the last start: each may bring one event more.
        Rule disarmed_by = Rule::kNotStarted;  // What an event now would break.
        std::string last_call = "LoadSoundModel";
    };

    // Makes a load with the callback that it is given.
    using Load = std::function<int(std::shared_ptr<Callback> callback)>;
    int WatchLoad(const Load& load, const char* call, std::shared_ptr<Callback> callback,
                  int* handle);
    std::string Describe(const std::string& call);
    // Around each event on its way to the framework. The lock is tried all the while and judged
    // at the end, so that the framework gets its event no later.
    void BeginEvent(const std::string& event, int handle, uint64_t* probe);
    void EndEvent(const std::string& event, int handle, uint64_t probe);
    void ProbeLoop();
    Violation& Add(Rule rule, int handle, const std::string& event, const std::string& other);
    void Tell(const std::optional<Violation>& violation) const;

    const std::unique_ptr<FrameworkCalls> calls_;
    const std::chrono::milliseconds lock_deadline_;
    const Listener listener_;

    mutable std::mutex lock_;
    // All below: under lock_.
    uint64_t clock_ = 0;  // Counts calls and events.
    int loads_running_ = 0;
    int dsp_restarts_running_ = 0;
    std::map<int, Model> models_;
    std::map<int, std::string> unloaded_;
    std::vector<Violation> violations_;

    // Tries the HAL's lock while a callback waits for it.
    std::condition_variable probe_changed_;
    uint64_t probes_wanted_ = 0;
    uint64_t probes_done_ = 0;
    bool is_stopping_ = false;
    std::thread probe_;  // Last: it uses all of the above.
};

const char* ToText(FrameworkMonitor::Rule rule);
std::ostream& operator<<(std::ostream& out, const FrameworkMonitor::Violation& violation);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
