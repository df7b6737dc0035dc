#pragma once

#include <mutex>
#include <vector>

#include "android-base/thread_annotations.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::soundcardstate {

/** Gets a report when the sound card, and with it the DSP, comes up or goes down. */
class SoundCardStateListener {
  public:
    virtual ~SoundCardStateListener() = default;

    /**
     * Called on the monitor's thread. Reports come one after the other, in order. The same state
     * may come twice.
     */
    virtual void OnSoundCardStateChanged(bool online) = 0;
};

/**
 * The sound card monitor: knows whether the card is online and tells its listeners.
 *
 * Thread-safe. Listeners are called on the reporting thread, in the order of their registration,
 * and without the lock that guards the state and the listeners: they may call IsOnline and
 * RegisterListener. They must not call Report or UnregisterListener, which wait for a running
 * report to end.
 */
class SoundCardState {
  public:
    SoundCardState() = default;
    SoundCardState(const SoundCardState&) = delete;
    SoundCardState& operator=(const SoundCardState&) = delete;

    /**
     * Adds a listener, which this object does not own. The listener gets every report that begins
     * from now on, but not the present state.
     *
     * @return false for null and for a listener that is registered already.
     */
    [[nodiscard]] bool RegisterListener(SoundCardStateListener* listener) EXCLUDES(lock_);

    /**
     * Removes a listener; one that is not registered is ignored. Waits for a running report to end:
     * after the return, the listener is not called any more and may be destroyed. So the caller
     * must not hold a lock that a listener takes.
     */
    void UnregisterListener(SoundCardStateListener* listener) EXCLUDES(report_lock_)
            EXCLUDES(lock_);

    /** The state last reported; false before the first report. */
    [[nodiscard]] bool IsOnline() const EXCLUDES(lock_);

    /**
     * Stores the state and reports it to every listener, even if it is the same as before.
     * Concurrent reports wait for one another. So all listeners see them in the same order, and
     * IsOnline never returns an older state than a listener has got.
     */
    void Report(bool online) EXCLUDES(report_lock_) EXCLUDES(lock_);

  private:
    // Taken before lock_. Held through a whole report.
    std::mutex report_lock_;
    mutable std::mutex lock_;
    bool is_online_ GUARDED_BY(lock_) = false;
    std::vector<SoundCardStateListener*> listeners_ GUARDED_BY(lock_);
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::soundcardstate
