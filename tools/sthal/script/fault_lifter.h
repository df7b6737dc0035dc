#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace sthal {

/**
 * A call that a fault holds cannot be interrupted. Who has asked for the end and does not get it
 * wants it let go, so that the run still comes to its report: `lift` is called once
 * `is_interrupted` has been true for about a second. Both are called on a thread of this class.
 */
class FaultLifter {
  public:
    FaultLifter(std::function<bool()> is_interrupted, std::function<void()> lift);
    ~FaultLifter();
    FaultLifter(const FaultLifter&) = delete;
    FaultLifter& operator=(const FaultLifter&) = delete;

  private:
    void Run() EXCLUDES(lock_);
    // Until it is time to look again. False when this object ends.
    bool WaitForNextLook() EXCLUDES(lock_);

    const std::function<bool()> is_interrupted_;
    const std::function<void()> lift_;
    std::mutex lock_;
    std::condition_variable ended_;
    bool is_ending_ GUARDED_BY(lock_) = false;
    std::thread thread_;  // Last: it uses all of the above.
};

}  // namespace sthal
