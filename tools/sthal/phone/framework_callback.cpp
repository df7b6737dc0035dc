#include "tools/sthal/phone/framework_callback.h"

#include <utility>

#include "host/virtual_dsp/dsp/journal.h"

namespace sthal {

using ::aidl::android::media::soundtrigger::PhraseRecognitionEvent;
using ::aidl::android::media::soundtrigger::RecognitionEvent;
using virtual_dsp::BoottimeNow;

std::optional<Event> FrameworkCallback::Take() {
    std::lock_guard lock(lock_);
    if (events_.empty()) return std::nullopt;
    Event event = std::move(events_.front());
    events_.pop_front();
    return event;
}

::ndk::ScopedAStatus FrameworkCallback::modelUnloaded(int32_t) {
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus FrameworkCallback::phraseRecognitionCallback(
        int32_t model, const PhraseRecognitionEvent& event) {
    Add({.handle = model, .entered_ns = BoottimeNow(), .is_phrase = true, .event = event});
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus FrameworkCallback::recognitionCallback(int32_t model,
                                                            const RecognitionEvent& event) {
    Event received{.handle = model, .entered_ns = BoottimeNow()};
    received.event.common = event;
    Add(std::move(received));
    return ::ndk::ScopedAStatus::ok();
}

void FrameworkCallback::Add(Event event) {
    listener_(event);
    std::lock_guard lock(lock_);
    events_.push_back(std::move(event));
}

}  // namespace sthal
