#pragma once

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/deadline.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * The framework's callback of a model. Keeps the events, and can run an action in each. Every event
 * call returns an error at its end, because that must not matter to the HAL. Thread-safe.
 */
class RecordingCallback
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    struct Event {
        int handle;
        bool is_phrase;
        ::aidl::android::media::soundtrigger::PhraseRecognitionEvent event;  // Or its common part.

        std::string payload() const { return {event.common.data.begin(), event.common.data.end()}; }
    };
    using Action = std::function<void(int handle)>;

    explicit RecordingCallback(Action action = nullptr) : action_(std::move(action)) {}

    // Runs `action` inside every event call from now on, before anything else. An event counts as
    // received when `action` has returned.
    void SetAction(Action action) {
        std::lock_guard lock(lock_);
        action_ = std::move(action);
    }
    std::vector<Event> events() const {
        std::lock_guard lock(lock_);
        return events_;
    }
    // Removes and returns the events.
    std::vector<Event> Take() {
        std::lock_guard lock(lock_);
        return std::exchange(events_, {});
    }
    // Whether there are so many events in time.
    [[nodiscard]] bool WaitForEvents(size_t count) {
        std::unique_lock lock(lock_);
        return grown_.wait_for(lock, kDeadline, [&] { return events_.size() >= count; });
    }

    // The handles that modelUnloaded() named.
    std::vector<int> unloaded() const {
        std::lock_guard lock(lock_);
        return unloaded_;
    }

    ::ndk::ScopedAStatus modelUnloaded(int handle) override {
        std::lock_guard lock(lock_);
        unloaded_.push_back(handle);
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus phraseRecognitionCallback(
            int handle,
            const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent& event) override {
        Act(handle);
        return Keep({handle, true, event});
    }
    ::ndk::ScopedAStatus recognitionCallback(
            int handle,
            const ::aidl::android::media::soundtrigger::RecognitionEvent& event) override {
        Act(handle);
        return Keep({handle, false, {.common = event, .phraseExtras = {}}});
    }

  private:
    void Act(int handle) {
        std::unique_lock lock(lock_);
        const Action action = action_;
        lock.unlock();
        if (action) action(handle);
    }
    ::ndk::ScopedAStatus Keep(Event event) {
        std::lock_guard lock(lock_);
        events_.push_back(std::move(event));
        grown_.notify_all();
        return ::ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
    }

    mutable std::mutex lock_;
    std::condition_variable grown_;
    std::vector<Event> events_;
    std::vector<int> unloaded_;
    Action action_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
