#include "host/virtual_dsp/nodes/wake_locks.h"

#include <cerrno>
#include <optional>

namespace virtual_dsp {
namespace {

std::optional<std::string> NameIn(std::string_view text) {
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    // The kernel would take a second word as a time-out. Nothing here asks for one, so that a
    // caller that does is told rather than kept waiting.
    if (text.empty() || text.find_first_of(" \t\n") != std::string_view::npos) return std::nullopt;
    return std::string(text);
}

}  // namespace

int WakeLocks::Acquire(std::string_view text) {
    const auto name = NameIn(text);
    if (!name) return -EINVAL;
    std::lock_guard lock(lock_);
    held_.insert(*name);
    return 0;
}

int WakeLocks::Release(std::string_view text) {
    const auto name = NameIn(text);
    if (!name) return -EINVAL;
    std::lock_guard lock(lock_);
    return held_.erase(*name) == 1 ? 0 : -EINVAL;
}

std::set<std::string> WakeLocks::Held() const {
    std::lock_guard lock(lock_);
    return held_;
}

bool WakeLocks::IsHeld(const std::string& name) const {
    std::lock_guard lock(lock_);
    return held_.contains(name);
}

}  // namespace virtual_dsp
