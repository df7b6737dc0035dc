#include "host/framework_monitor/framework_monitor.h"

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

const char* ToText(FrameworkMonitor::Rule rule) {
    switch (rule) {
        case FrameworkMonitor::Rule::kUnknownHandle:
            return "an event for an unknown handle";
        case FrameworkMonitor::Rule::kNotStarted:
            return "an event for a model that is not started";
        case FrameworkMonitor::Rule::kSecondEvent:
            return "a second event without a new start";
        case FrameworkMonitor::Rule::kSecondEventAfterDspRestart:
            return "a second event without a new start, after a restart of the DSP";
        case FrameworkMonitor::Rule::kEventAfterStop:
            return "an event after the stop of its model has returned";
        case FrameworkMonitor::Rule::kEventAfterUnload:
            return "an event after the unload of its model has returned";
        case FrameworkMonitor::Rule::kCallbackUnderLock:
            return "a callback while the HAL's lock is held";
    }
    return "?";
}

std::ostream& operator<<(std::ostream& out, const FrameworkMonitor::Violation& violation) {
    return out << violation.text;
}

// What the HAL is given in place of the framework's callback.
class MonitoredCallback final
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    MonitoredCallback(FrameworkMonitor* monitor, std::shared_ptr<FrameworkMonitor::Callback> inner)
        : monitor_(monitor), inner_(std::move(inner)) {}

    ::ndk::ScopedAStatus modelUnloaded(int32_t handle) override {
        return inner_->modelUnloaded(handle);
    }
    ::ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t handle,
            const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent& event) override {
        return Watch("phraseRecognitionCallback", handle,
                     [&] { return inner_->phraseRecognitionCallback(handle, event); });
    }
    ::ndk::ScopedAStatus recognitionCallback(
            int32_t handle,
            const ::aidl::android::media::soundtrigger::RecognitionEvent& event) override {
        return Watch("recognitionCallback", handle,
                     [&] { return inner_->recognitionCallback(handle, event); });
    }

  private:
    template <typename Deliver>
    ::ndk::ScopedAStatus Watch(const char* name, int handle, Deliver deliver) {
        const std::string event = std::string(name) + "(" + std::to_string(handle) + ")";
        uint64_t probe = 0;
        monitor_->BeginEvent(event, handle, &probe);
        ::ndk::ScopedAStatus status = deliver();
        monitor_->EndEvent(event, handle, probe);
        return status;
    }

    FrameworkMonitor* const monitor_;
    const std::shared_ptr<FrameworkMonitor::Callback> inner_;
};

FrameworkMonitor::FrameworkMonitor(std::unique_ptr<FrameworkCalls> calls,
                                   std::chrono::milliseconds lock_deadline, Listener listener)
    : calls_(std::move(calls)),
      lock_deadline_(lock_deadline),
      listener_(std::move(listener)),
      probe_(&FrameworkMonitor::ProbeLoop, this) {}

FrameworkMonitor::~FrameworkMonitor() {
    {
        std::lock_guard lock(lock_);
        is_stopping_ = true;
        probe_changed_.notify_all();
    }
    probe_.join();
}

// --- the framework's calls ---

int FrameworkMonitor::LoadSoundModel(const SoundModel& model, std::shared_ptr<Callback> callback,
                                     int* handle) {
    return WatchLoad(
            [&](auto watched) { return calls_->LoadSoundModel(model, std::move(watched), handle); },
            "LoadSoundModel", std::move(callback), handle);
}

int FrameworkMonitor::LoadPhraseSoundModel(const PhraseSoundModel& model,
                                           std::shared_ptr<Callback> callback, int* handle) {
    return WatchLoad(
            [&](auto watched) {
                return calls_->LoadPhraseSoundModel(model, std::move(watched), handle);
            },
            "LoadPhraseSoundModel", std::move(callback), handle);
}

int FrameworkMonitor::WatchLoad(const Load& load, const char* call,
                                std::shared_ptr<Callback> callback, int* handle) {
    if (callback) {
        callback = ::ndk::SharedRefBase::make<MonitoredCallback>(this, std::move(callback));
    }
    {
        std::lock_guard lock(lock_);
        ++loads_running_;
    }
    const int result = load(std::move(callback));
    std::lock_guard lock(lock_);
    --loads_running_;
    if (result != 0) return result;
    Model loaded{.generation = ++clock_};
    loaded.restarts = dsp_restarts_running_;
    loaded.last_call = Describe(std::string(call) + " -> " + std::to_string(*handle));
    models_.insert_or_assign(*handle, std::move(loaded));
    unloaded_.erase(*handle);
    return result;
}

int FrameworkMonitor::UnloadSoundModel(int handle) {
    uint64_t generation = 0;
    {
        std::lock_guard lock(lock_);
        const auto model = models_.find(handle);
        if (model != models_.end()) generation = model->second.generation;
    }
    const int result = calls_->UnloadSoundModel(handle);
    std::lock_guard lock(lock_);
    const auto model = models_.find(handle);
    // Another model may have got the handle before this thread came to write down that it is free.
    if (result != 0 || model == models_.end() || model->second.generation != generation) {
        return result;
    }
    unloaded_[handle] = Describe("UnloadSoundModel(" + std::to_string(handle) + ") -> 0");
    models_.erase(model);
    return result;
}

int FrameworkMonitor::StartRecognition(int handle, int io_handle, const RecognitionConfig& config) {
    bool was_armed = false;
    uint64_t generation = 0;
    {
        std::lock_guard lock(lock_);
        if (const auto model = models_.find(handle); model != models_.end()) {
            generation = model->second.generation;
            was_armed = std::exchange(model->second.is_armed, true);
            ++model->second.starts_running;
            model->second.last_start = ++clock_;
            model->second.restarts = dsp_restarts_running_;
        }
    }
    const int result = calls_->StartRecognition(handle, io_handle, config);
    std::lock_guard lock(lock_);
    const auto found = models_.find(handle);
    if (found == models_.end() || found->second.generation != generation) return result;
    Model& model = found->second;
    --model.starts_running;
    if (result == 0) {
        model.last_call = Describe("StartRecognition(" + std::to_string(handle) + ") -> 0");
    } else if (!was_armed && model.starts_running == 0) {
        model.is_armed = false;
    }
    return result;
}

int FrameworkMonitor::StopRecognition(int handle) {
    uint64_t began = 0;
    {
        std::lock_guard lock(lock_);
        began = ++clock_;
    }
    const int result = calls_->StopRecognition(handle);
    std::lock_guard lock(lock_);
    const auto found = models_.find(handle);
    if (result != 0 || found == models_.end()) return result;
    Model& model = found->second;
    // A start that ran beside this stop may have come after it.
    if (model.starts_running > 0 || model.last_start > began || model.generation > began) {
        return result;
    }
    model.is_armed = false;
    model.disarmed_by = Rule::kEventAfterStop;
    model.last_call = Describe("StopRecognition(" + std::to_string(handle) + ") -> 0");
    return result;
}

int FrameworkMonitor::ForceRecognitionEvent(int handle) {
    return calls_->ForceRecognitionEvent(handle);
}

void FrameworkMonitor::BeginDspRestart() {
    std::lock_guard lock(lock_);
    ++dsp_restarts_running_;
    for (auto& [handle, model] : models_) ++model.restarts;
}

void FrameworkMonitor::EndDspRestart() {
    std::lock_guard lock(lock_);
    --dsp_restarts_running_;
}

std::vector<FrameworkMonitor::Violation> FrameworkMonitor::violations() const {
    std::lock_guard lock(lock_);
    return violations_;
}

// --- events ---

void FrameworkMonitor::BeginEvent(const std::string& event, int handle, uint64_t* probe) {
    std::optional<Violation> broken;
    {
        std::lock_guard lock(lock_);
        *probe = ++probes_wanted_;
        probe_changed_.notify_all();
        const std::string description = Describe(event);
        const auto found = models_.find(handle);
        if (found == models_.end()) {
            const auto unloaded = unloaded_.find(handle);
            // A load that has not returned yet may be the one that gave the handle out.
            if (loads_running_ > 0) return;
            broken = unloaded == unloaded_.end()
                             ? Add(Rule::kUnknownHandle, handle, description, "no LoadSoundModel")
                             : Add(Rule::kEventAfterUnload, handle, description, unloaded->second);
        } else if (Model& model = found->second; model.is_armed) {
            model.is_armed = false;
            model.disarmed_by = Rule::kSecondEvent;
            model.last_call = description;
        } else {
            const bool is_restart = model.disarmed_by == Rule::kSecondEvent && model.restarts > 0;
            if (is_restart) --model.restarts;
            broken = Add(is_restart ? Rule::kSecondEventAfterDspRestart : model.disarmed_by, handle,
                         description, model.last_call);
        }
    }
    Tell(broken);
}

// Another thread tries the lock: this one may be the one that holds it.
void FrameworkMonitor::EndEvent(const std::string& event, int handle, uint64_t probe) {
    std::optional<Violation> broken;
    {
        std::unique_lock lock(lock_);
        if (probe_changed_.wait_for(lock, lock_deadline_, [&] { return probes_done_ >= probe; })) {
            return;
        }
        broken = Add(Rule::kCallbackUnderLock, handle, Describe(event),
                     "a call that needs the lock and has waited for " +
                             std::to_string(lock_deadline_.count()) + " ms");
    }
    Tell(broken);
}

void FrameworkMonitor::ProbeLoop() {
    std::unique_lock lock(lock_);
    while (true) {
        probe_changed_.wait(lock, [this] { return is_stopping_ || probes_done_ < probes_wanted_; });
        if (is_stopping_) return;
        const uint64_t wanted = probes_wanted_;
        lock.unlock();
        calls_->PassThroughLock();
        lock.lock();
        probes_done_ = wanted;
        probe_changed_.notify_all();
    }
}

std::string FrameworkMonitor::Describe(const std::string& call) {
    std::array<char, 16> name = {};
    (void)pthread_getname_np(pthread_self(), name.data(), name.size());
    return "#" + std::to_string(++clock_) + " " + call + " on thread " + std::to_string(gettid()) +
           " (" + name.data() + ")";
}

FrameworkMonitor::Violation& FrameworkMonitor::Add(Rule rule, int handle, const std::string& event,
                                                   const std::string& other) {
    violations_.push_back(
            {rule, handle, std::string(ToText(rule)) + ": " + event + ", after " + other});
    return violations_.back();
}

void FrameworkMonitor::Tell(const std::optional<Violation>& violation) const {
    if (violation && listener_) listener_(*violation);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
