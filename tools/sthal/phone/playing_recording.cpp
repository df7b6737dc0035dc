#include "tools/sthal/phone/playing_recording.h"

#include <chrono>

namespace sthal {

void PlayingRecording::AddHeard(uint64_t first_frame, size_t end, int64_t end_ns) {
    std::lock_guard lock(lock_);
    first_frame_ = first_frame;
    heard_.Add(end, end_ns);
}

bool PlayingRecording::IsFinished() const {
    return finished_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

size_t PlayingRecording::heard_frames() const {
    std::lock_guard lock(lock_);
    return heard_.frames();
}

uint64_t PlayingRecording::first_frame() const {
    std::lock_guard lock(lock_);
    return first_frame_;
}

int64_t PlayingRecording::HeardAtNs(size_t frame) const {
    std::lock_guard lock(lock_);
    return heard_.At(frame);
}

}  // namespace sthal
