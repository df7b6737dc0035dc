#pragma once

#include <string>

namespace vendor::quarno::brindlecove::audio::hal::utils::wakelock {

/**
 * A named wake lock of the kernel, through /sys/power/wake_lock and /sys/power/wake_unlock. While
 * it is held the application processor does not suspend.
 *
 * A call that fails is logged and changes nothing: a held lock stays held, a free one stays free.
 * Released on destruction if held. Not thread-safe: its owner serialises all calls.
 */
class WakeLock {
  public:
    /** @param name  The kernel's name for the lock, unique on the phone, without white space. */
    explicit WakeLock(std::string name);
    ~WakeLock();
    WakeLock(const WakeLock&) = delete;
    WakeLock& operator=(const WakeLock&) = delete;

    /** Takes the lock, without a time-out. Does nothing while it is held. */
    void Acquire();

    /**
     * Releases the lock. Does nothing while it is not held, except in the first call. The kernel
     * keeps a wake lock when the process that took it dies, so a restarted service must be able to
     * release the lock that its predecessor took.
     */
    void Release();

    /** Whether this object has taken the lock and still holds it. */
    bool is_held() const { return is_held_; }

    const std::string& name() const { return name_; }

  private:
    const std::string name_;
    bool is_held_ = false;
    bool may_be_left_over_ = true;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::wakelock
