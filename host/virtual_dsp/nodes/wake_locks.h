#pragma once

#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace virtual_dsp {

// The names that keep the phone awake, as written to the board's power nodes.
//
// Thread-safe.
class WakeLocks {
  public:
    // `text` is what was written: a name, or a name and a newline. Returns 0 or -EINVAL: no name,
    // white space within it, or (releasing) a name that is not held. Taking a held name again
    // changes nothing: wake locks do not count.
    int Acquire(std::string_view text);
    int Release(std::string_view text);

    std::set<std::string> Held() const;
    bool IsHeld(const std::string& name) const;

  private:
    mutable std::mutex lock_;
    std::set<std::string> held_;  // Under lock_.
};

}  // namespace virtual_dsp
