#pragma once

#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include <android-base/thread_annotations.h>

namespace virtual_dsp {

// The names that keep the phone awake, as written to the board's power nodes.
//
// Thread-safe.
class WakeLocks {
  public:
    // `text` is what was written: a name, or a name and a newline. Returns 0 or -EINVAL: no name,
    // white space within it, or, in Release, a name that is not held. Taking a held name again
    // changes nothing: wake locks do not count.
    int Acquire(std::string_view text) EXCLUDES(lock_);
    int Release(std::string_view text) EXCLUDES(lock_);

    std::set<std::string> Held() const EXCLUDES(lock_);
    bool IsHeld(const std::string& name) const EXCLUDES(lock_);

  private:
    mutable std::mutex lock_;
    std::set<std::string> held_ GUARDED_BY(lock_);
};

}  // namespace virtual_dsp
