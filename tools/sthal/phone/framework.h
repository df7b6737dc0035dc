#pragma once

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <aidl/android/media/soundtrigger/PhraseRecognitionEvent.h>
#include <aidl/android/media/soundtrigger/RecognitionEvent.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace sthal {

// A recognition event as the framework got it.
struct FrameworkEvent {
    int32_t handle = 0;
    int64_t entered_ns = 0;  // Boot time at which the callback was entered.
    bool is_phrase = false;
    ::aidl::android::media::soundtrigger::PhraseRecognitionEvent
            event{};  // A generic one's `common`.

    // Its fields on one line, for a person.
    std::string ToString() const;
};

/** The framework's end of the callback: keeps the events until somebody waits for them. */
class FrameworkCallback
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    using Listener = std::function<void(const FrameworkEvent&)>;

    // `listener` is called on the HAL's control thread, before the event can be waited for.
    explicit FrameworkCallback(Listener listener = {});

    // Takes the oldest event; none when `deadline` passes or `give_up` says so, which is asked
    // every 20 ms.
    std::optional<FrameworkEvent> Wait(std::chrono::steady_clock::time_point deadline,
                                       const std::function<bool()>& give_up = {});

    ::ndk::ScopedAStatus modelUnloaded(int32_t model) override;
    ::ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t model,
            const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent& event) override;
    ::ndk::ScopedAStatus recognitionCallback(
            int32_t model,
            const ::aidl::android::media::soundtrigger::RecognitionEvent& event) override;

  private:
    void Add(FrameworkEvent event);

    const Listener listener_;
    std::mutex lock_;
    std::condition_variable arrived_;
    std::deque<FrameworkEvent> events_;  // Under lock_.
};

}  // namespace sthal
