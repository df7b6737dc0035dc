#include "audio/hal/aidl/soundtrigger/event_delivery.h"

#include <chrono>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

// A framework may hold a lock while it stops a model, and its callback may wait for that lock. The
// stop then returns after this long, well within the 3 s that a framework gives every call.
constexpr std::chrono::milliseconds kCallbackTimeout{500};

}  // namespace

void EventDelivery::Begin(int32_t handle) {
    event_ = {.handle = handle, .thread = std::this_thread::get_id()};
}

bool EventDelivery::Claim() {
    event_->is_claimed = !event_->is_dropped;
    return event_->is_claimed;
}

void EventDelivery::End() {
    event_.reset();
    ended_.notify_all();
}

void EventDelivery::Drop(int32_t handle) {
    if (event_ && event_->handle == handle) event_->is_dropped = true;
}

void EventDelivery::WaitForCallback(int32_t handle, std::mutex& lock) {
    const auto deadline = std::chrono::steady_clock::now() + kCallbackTimeout;
    // For the wait only: the lock goes back to the caller as it came.
    std::unique_lock held(lock, std::adopt_lock);
    (void)ended_.wait_until(held, deadline, [&] {
        return !event_ || event_->handle != handle || !event_->is_claimed ||
               event_->thread == std::this_thread::get_id();
    });
    (void)held.release();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
