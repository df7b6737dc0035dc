#include "tools/sthal/script/recent_log.h"

#include <algorithm>
#include <utility>

namespace sthal {

void RecentLog::Add(std::string line) {
    std::lock_guard lock(lock_);
    lines_.push_back(std::move(line));
    if (lines_.size() > kCapacity) lines_.pop_front();
}

bool RecentLog::Contains(const std::string& text) const {
    std::lock_guard lock(lock_);
    return std::any_of(lines_.begin(), lines_.end(), [&](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

void RecentLog::Clear() {
    std::lock_guard lock(lock_);
    lines_.clear();
}

}  // namespace sthal
