#include "tools/sthal/phone/playback.h"

#include <algorithm>
#include <utility>

#include "host/virtual_dsp/dsp/journal.h"

namespace sthal {

int64_t MicrophoneClock::Now() {
    const int64_t now = virtual_dsp::BoottimeNow();
    latest_ns_ = now;
    return now;
}

std::shared_ptr<Playback> Playback::Begin(virtual_dsp::Microphone& microphone,
                                          std::shared_ptr<MicrophoneClock> clock,
                                          const audio::Sound& recording) {
    std::shared_ptr<Playback> playback(new Playback(std::move(clock), recording.frames()));
    playback->finished_ =
            microphone.Play(recording.Stereo().samples, [playback, &microphone](size_t frames) {
                // The position is still that of the block's first frame.
                playback->Heard(frames, microphone.Position());
            });
    return playback;
}

Playback::Playback(std::shared_ptr<MicrophoneClock> clock, size_t frames)
    : clock_(std::move(clock)), frames_(frames) {}

void Playback::Heard(size_t frames, uint64_t microphone_position) {
    const int64_t end_ns = clock_->latest_ns();
    std::lock_guard lock(lock_);
    if (blocks_.empty()) first_frame_ = microphone_position;
    // The first block is taken as long as it would be in real time: nothing tells when the one
    // before it was heard, and no hotword ends in it.
    const int64_t start_ns = blocks_.empty() ? end_ns - static_cast<int64_t>(frames) *
                                                                1'000'000'000 / audio::kSampleRateHz
                                             : blocks_.back().end_ns;
    blocks_.push_back({frames, start_ns, end_ns});
}

bool Playback::IsFinished() const {
    return finished_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

size_t Playback::heard_frames() const {
    std::lock_guard lock(lock_);
    return blocks_.empty() ? 0 : blocks_.back().end;
}

uint64_t Playback::first_frame() const {
    std::lock_guard lock(lock_);
    return first_frame_;
}

int64_t Playback::HeardAtNs(size_t frame) const {
    std::lock_guard lock(lock_);
    const auto block = std::ranges::upper_bound(blocks_, frame, {}, &Block::end);
    if (block == blocks_.end()) return 0;
    const size_t begin = block == blocks_.begin() ? 0 : std::prev(block)->end;
    const auto nth = static_cast<int64_t>(frame - begin + 1);
    return block->start_ns +
           (block->end_ns - block->start_ns) * nth / static_cast<int64_t>(block->end - begin);
}

}  // namespace sthal
