#pragma once

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <android-base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

/** The framework's end of the callback: keeps the events until somebody waits for them. */
class FrameworkCallback
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    using Listener = std::function<void(Event& event)>;

    // `listener` is called on the HAL's control thread, before the event can be waited for.
    explicit FrameworkCallback(Listener listener) : listener_(std::move(listener)) {}

    // Takes the oldest event that has come.
    std::optional<Event> Take() EXCLUDES(lock_);

    ::ndk::ScopedAStatus modelUnloaded(int32_t model) override;
    ::ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t model,
            const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent& event) override;
    ::ndk::ScopedAStatus recognitionCallback(
            int32_t model,
            const ::aidl::android::media::soundtrigger::RecognitionEvent& event) override;

  private:
    void Add(Event event) EXCLUDES(lock_);

    const Listener listener_;
    std::mutex lock_;
    std::deque<Event> events_ GUARDED_BY(lock_);
};

}  // namespace sthal
