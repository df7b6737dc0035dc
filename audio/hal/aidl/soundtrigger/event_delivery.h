#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * The event that is on its way to the framework. The framework restarts a HAL that delivers an
 * event after the stop or unload of its model has returned, so both drop it, and wait for it where
 * that comes too late.
 *
 *   none --Begin()--> pending --Claim()--> the framework is being called --End()--> none
 *                        '--Drop()--> dropped --Claim()--> false --End()--> none
 *
 * Begin, Claim and End belong to the control thread. The HAL's lock guards all of it.
 */
class EventDelivery {
  public:
    /** An event of the model `handle` is pending, to be delivered on this thread. */
    void Begin(int32_t handle);

    /** Whether to call the framework now; an event that was dropped is not delivered. */
    [[nodiscard]] bool Claim();

    void End();

    /** Drops the pending event of this model. Too late for one that has been claimed. */
    void Drop(int32_t handle);

    /**
     * Waits until the framework's callback for this model has returned, for up to 500 ms. Returns
     * at once when called from that callback. Releases `lock` while it waits.
     */
    void WaitForCallback(int32_t handle, std::mutex& lock) REQUIRES(lock);

    /** Whether an event is on its way. */
    explicit operator bool() const { return event_.has_value(); }

  private:
    struct Event {
        int32_t handle = 0;
        std::thread::id thread;
        bool is_claimed = false;
        bool is_dropped = false;
    };

    std::optional<Event> event_;
    std::condition_variable ended_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
