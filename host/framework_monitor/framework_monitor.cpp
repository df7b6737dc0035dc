#include "host/framework_monitor/framework_monitor.h"

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/common/condition.h"

namespace framework {

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
        return Watch(Call::Kind::kPhraseRecognitionCallback, handle,
                     [&] { return inner_->phraseRecognitionCallback(handle, event); });
    }
    ::ndk::ScopedAStatus recognitionCallback(
            int32_t handle,
            const ::aidl::android::media::soundtrigger::RecognitionEvent& event) override {
        return Watch(Call::Kind::kRecognitionCallback, handle,
                     [&] { return inner_->recognitionCallback(handle, event); });
    }

  private:
    template <typename Deliver>
    ::ndk::ScopedAStatus Watch(Call::Kind kind, int handle, Deliver deliver) {
        const uint64_t probe = monitor_->BeginEvent(kind, handle);
        ::ndk::ScopedAStatus status = deliver();
        monitor_->EndEvent(kind, handle, probe);
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
      probe_(&FrameworkMonitor::RunProbes, this) {}

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
            Call::Kind::kLoadSoundModel, std::move(callback), handle);
}

int FrameworkMonitor::LoadPhraseSoundModel(const PhraseSoundModel& model,
                                           std::shared_ptr<Callback> callback, int* handle) {
    return WatchLoad(
            [&](auto watched) {
                return calls_->LoadPhraseSoundModel(model, std::move(watched), handle);
            },
            Call::Kind::kLoadPhraseSoundModel, std::move(callback), handle);
}

int FrameworkMonitor::WatchLoad(const Load& load, Call::Kind kind,
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
    // There is a model of this handle already if the HAL has dropped it. Its owner may not know
    // that and use the handle, too: what it has armed stays.
    Model& loaded = models_.try_emplace(*handle, Model{.generation = ++clock_}).first->second;
    loaded.restarts = dsp_restarts_running_;
    loaded.last_call = Number(kind, *handle);
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
    unloaded_[handle] = Number(Call::Kind::kUnloadSoundModel, handle);
    models_.erase(model);
    return result;
}

int FrameworkMonitor::StartRecognition(int handle, int io_handle, const RecognitionConfig& config) {
    bool was_armed = false;
    uint64_t generation = 0;
    uint64_t began = 0;
    int restarts_ended = 0;
    {
        std::lock_guard lock(lock_);
        began = ++clock_;
        restarts_ended = dsp_restarts_begun_ - dsp_restarts_running_;
        if (const auto found = models_.find(handle); found != models_.end()) {
            Model& model = found->second;
            generation = model.generation;
            was_armed = std::exchange(model.is_armed, true);
            if (was_armed) ++model.earlier_starts;
            ++model.starts_running;
            model.last_start = began;
        }
    }
    const int result = calls_->StartRecognition(handle, io_handle, config);
    std::lock_guard lock(lock_);
    const auto found = models_.find(handle);
    if (found == models_.end() || found->second.generation != generation) return result;
    Model& model = found->second;
    if (--model.starts_running == 0) model.earlier_starts = 0;
    if (result == 0) {
        model.last_call = Number(Call::Kind::kStartRecognition, handle);
        model.last_start_end = model.last_call.number;
        // What the DSP detected after a restart before this start is void now.
        model.restarts = std::min(model.restarts, dsp_restarts_begun_ - restarts_ended);
    } else if (!was_armed && model.starts_running == 0 && model.last_start_end < began) {
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
    if (model.starts_running > 0 || model.last_start > began || model.last_start_end > began ||
        model.generation > began) {
        return result;
    }
    model.is_armed = false;
    model.disarmed_by = Rule::kEventAfterStop;
    model.last_call = Number(Call::Kind::kStopRecognition, handle);
    return result;
}

int FrameworkMonitor::ForceRecognitionEvent(int handle) {
    return calls_->ForceRecognitionEvent(handle);
}

void FrameworkMonitor::BeginDspRestart() {
    std::lock_guard lock(lock_);
    ++dsp_restarts_begun_;
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

uint64_t FrameworkMonitor::BeginEvent(Call::Kind kind, int handle) {
    uint64_t probe = 0;
    std::optional<Violation> violation;
    {
        std::lock_guard lock(lock_);
        probe = ++probes_wanted_;
        probe_changed_.notify_all();
        violation = JudgeEvent(Number(kind, handle));
        if (violation) violations_.push_back(*violation);
    }
    if (violation && listener_) listener_(*violation);
    return probe;
}

std::optional<Violation> FrameworkMonitor::JudgeEvent(const Call& event) {
    const auto found = models_.find(event.handle);
    if (found == models_.end()) {
        // A load that has not returned yet may be the one that gave the handle out.
        if (loads_running_ > 0) return std::nullopt;
        const auto unloaded = unloaded_.find(event.handle);
        if (unloaded == unloaded_.end()) return Violation{Rule::kUnknownHandle, event};
        return Violation{Rule::kEventAfterUnload, event, unloaded->second};
    }
    Model& model = found->second;
    // While a start runs, an event may be of what came before it; the start's own then comes later.
    for (int* earlier : {&model.restarts, &model.earlier_starts}) {
        if (model.starts_running == 0 || *earlier == 0) continue;
        --*earlier;
        return std::nullopt;
    }
    if (model.is_armed) {
        model.is_armed = false;
        model.disarmed_by = Rule::kSecondEvent;
        model.last_call = event;
        return std::nullopt;
    }
    const bool is_restart = model.disarmed_by == Rule::kSecondEvent && model.restarts > 0;
    if (is_restart) --model.restarts;
    return Violation{is_restart ? Rule::kSecondEventAfterDspRestart : model.disarmed_by, event,
                     model.last_call};
}

// Another thread tries the lock: this one may be the one that holds it.
void FrameworkMonitor::EndEvent(Call::Kind kind, int handle, uint64_t probe) {
    const auto deadline = std::chrono::steady_clock::now() + lock_deadline_;
    Violation violation{Rule::kCallbackUnderLock, {}, {}, lock_deadline_};
    {
        std::lock_guard lock(lock_);
        bool is_late = false;
        while (probes_done_ < probe && !is_late) {
            is_late = !host::WaitUntil(probe_changed_, lock_, deadline);
        }
        if (probes_done_ >= probe) return;
        violation.event = Number(kind, handle);
        violations_.push_back(violation);
    }
    if (listener_) listener_(violation);
}

bool FrameworkMonitor::WaitForProbe(uint64_t* wanted) {
    std::lock_guard lock(lock_);
    while (!is_stopping_ && probes_done_ == probes_wanted_) host::Wait(probe_changed_, lock_);
    *wanted = probes_wanted_;
    return !is_stopping_;
}

void FrameworkMonitor::RunProbes() {
    uint64_t wanted = 0;
    while (WaitForProbe(&wanted)) {
        calls_->PassThroughLock();
        std::lock_guard lock(lock_);
        probes_done_ = wanted;
        probe_changed_.notify_all();
    }
}

Call FrameworkMonitor::Number(Call::Kind kind, int handle) {
    std::array<char, 16> name = {};
    (void)pthread_getname_np(pthread_self(), name.data(), name.size());
    return {kind, handle, ++clock_, gettid(), name.data()};
}

}  // namespace framework
