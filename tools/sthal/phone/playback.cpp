#include "tools/sthal/phone/playback.h"

#include <chrono>

namespace sthal {

void Playback::AddHeard(uint64_t first_frame, size_t end, int64_t end_ns) {
    std::lock_guard lock(lock_);
    first_frame_ = first_frame;
    heard_.Add(end, end_ns);
}

bool Playback::IsFinished() const {
    return finished_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

size_t Playback::heard_frames() const {
    std::lock_guard lock(lock_);
    return heard_.frames();
}

uint64_t Playback::first_frame() const {
    std::lock_guard lock(lock_);
    return first_frame_;
}

int64_t Playback::HeardAtNs(size_t frame) const {
    std::lock_guard lock(lock_);
    return heard_.At(frame);
}

}  // namespace sthal
