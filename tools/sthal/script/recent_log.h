#pragma once

#include <android-base/thread_annotations.h>

#include <deque>
#include <mutex>
#include <string>

namespace sthal {

/** The latest lines of the HAL's log. Thread-safe. */
class RecentLog {
  public:
    static constexpr size_t kCapacity = 2000;

    void Add(std::string line) EXCLUDES(lock_);
    // Whether one of the lines holds this text.
    bool Contains(const std::string& text) const EXCLUDES(lock_);
    void Clear() EXCLUDES(lock_);

  private:
    mutable std::mutex lock_;
    std::deque<std::string> lines_ GUARDED_BY(lock_);
};

}  // namespace sthal
