#pragma once

#include <string>

namespace vendor::quarno::brindlecove::audio::hal::utils::wakelock {

/**
 * A named wake lock of the kernel, through /sys/power/wake_lock and /sys/power/wake_unlock. While
 * it is held the application processor does not suspend.
 *
 * A failure is logged and otherwise without consequence: the lock is then as held or as free as it
 * was. Released on destruction if held. Not thread-safe: its owner serialises all calls.
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
     * Gives the lock back. Does nothing while it is not held, except for the first time: the kernel
     * keeps a wake lock when the process that took it dies, so a restarted service has to be able
     * to give back what its predecessor took.
     */
    void Release();

    /** Whether this object took the lock and still has it. */
    bool is_held() const { return is_held_; }

    const std::string& name() const { return name_; }

  private:
    const std::string name_;
    bool is_held_ = false;
    bool may_be_left_over_ = true;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::wakelock
