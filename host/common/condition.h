#pragma once

#include <android-base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

// Waiting on a condition variable under a std::lock_guard. A wait needs a std::unique_lock, which
// clang's lock analysis cannot follow; with these functions it sees the lock held throughout. They
// may return early, so they are called in a loop that looks at the condition.
namespace host {

inline void Wait(std::condition_variable& changed, std::mutex& lock) REQUIRES(lock);

// False once `deadline` has passed.
[[nodiscard]] inline bool WaitUntil(std::condition_variable& changed, std::mutex& lock,
                                    std::chrono::steady_clock::time_point deadline) REQUIRES(lock);

void Wait(std::condition_variable& changed, std::mutex& lock) {
    std::unique_lock waiting(lock, std::adopt_lock);
    changed.wait(waiting);
    (void)waiting.release();
}

bool WaitUntil(std::condition_variable& changed, std::mutex& lock,
               std::chrono::steady_clock::time_point deadline) {
    std::unique_lock waiting(lock, std::adopt_lock);
    const std::cv_status status = changed.wait_until(waiting, deadline);
    (void)waiting.release();
    return status == std::cv_status::no_timeout;
}

}  // namespace host
