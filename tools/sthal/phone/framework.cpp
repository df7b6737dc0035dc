#include "tools/sthal/phone/framework.h"

#include <utility>

#include "host/virtual_dsp/dsp/journal.h"

namespace sthal {

namespace {

using ::aidl::android::media::soundtrigger::PhraseRecognitionEvent;
using ::aidl::android::media::soundtrigger::RecognitionEvent;

constexpr std::chrono::milliseconds kLookAgain{20};

}  // namespace

std::string FrameworkEvent::ToString() const {
    const RecognitionEvent& common = event.common;
    std::string text = is_phrase ? "phrase event" : "generic event";
    text += " of model " + std::to_string(handle) + ": status " + toString(common.status);
    text += common.captureAvailable ? ", capture available" : ", no capture";
    if (common.audioConfig) {
        const auto& base = common.audioConfig->base;
        text += ", " + std::to_string(base.sampleRate) + " Hz " + toString(base.format.pcm) + " " +
                base.channelMask.toString();
    }
    if (is_phrase) {
        for (const auto& extra : event.phraseExtras) text += ", " + extra.toString();
    }
    const std::string data(common.data.begin(), common.data.end());
    text += ", data " + std::to_string(data.size()) + " bytes";
    if (!data.empty()) text += " \"" + data + "\"";
    return text;
}

FrameworkCallback::FrameworkCallback(Listener listener) : listener_(std::move(listener)) {}

std::optional<FrameworkEvent> FrameworkCallback::Wait(
        std::chrono::steady_clock::time_point deadline, const std::function<bool()>& give_up) {
    std::unique_lock lock(lock_);
    while (events_.empty()) {
        if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
        if (give_up && give_up()) return std::nullopt;
        arrived_.wait_for(lock, kLookAgain);
    }
    FrameworkEvent event = std::move(events_.front());
    events_.pop_front();
    return event;
}

::ndk::ScopedAStatus FrameworkCallback::modelUnloaded(int32_t) {
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus FrameworkCallback::phraseRecognitionCallback(
        int32_t model, const PhraseRecognitionEvent& event) {
    Add({.handle = model,
         .entered_ns = virtual_dsp::BoottimeNow(),
         .is_phrase = true,
         .event = event});
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus FrameworkCallback::recognitionCallback(int32_t model,
                                                            const RecognitionEvent& event) {
    FrameworkEvent received{.handle = model, .entered_ns = virtual_dsp::BoottimeNow()};
    received.event.common = event;
    Add(std::move(received));
    return ::ndk::ScopedAStatus::ok();
}

void FrameworkCallback::Add(FrameworkEvent event) {
    if (listener_) listener_(event);
    {
        std::lock_guard lock(lock_);
        events_.push_back(std::move(event));
    }
    arrived_.notify_all();
}

}  // namespace sthal
