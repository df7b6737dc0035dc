#include "host/virtual_dsp/board/microphone.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include "host/common/condition.h"
#include "host/virtual_dsp/dsp/journal.h"
#include "host/virtual_dsp/nodes/signals_blocked.h"

namespace virtual_dsp {
namespace {

using Idle = MicrophoneOptions::Idle;

constexpr size_t kChannels = wire::kHotwordChannels;

MicrophoneOptions WithClock(MicrophoneOptions options) {
    if (!options.boottime_ns) options.boottime_ns = BoottimeNow;
    return options;
}

}  // namespace

Microphone::Microphone(Dsp& dsp, MicrophoneOptions options)
    : dsp_(dsp), options_(WithClock(std::move(options))), noise_(options_.noise_seed) {
    const SignalsBlocked blocked;
    thread_ = std::thread(&Microphone::Run, this);
}

Microphone::~Microphone() {
    Stop();
    {
        std::lock_guard lock(lock_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

std::shared_future<bool> Microphone::Play(std::vector<int16_t> samples, Progress progress) {
    auto playback = std::make_shared<Playback>();
    playback->samples = std::move(samples);
    playback->progress = std::move(progress);
    std::shared_future<bool> finished = playback->finished.get_future().share();
    if (playback->frames() == 0) {
        playback->finished.set_value(true);
        return finished;
    }
    {
        std::lock_guard lock(lock_);
        queue_.push_back(std::move(playback));
    }
    changed_.notify_all();
    return finished;
}

void Microphone::Stop() {
    std::lock_guard lock(lock_);
    for (const auto& playback : queue_) playback->finished.set_value(false);
    queue_.clear();
    if (std::this_thread::get_id() == thread_.get_id()) return;
    while (hearing_) host::Wait(changed_, lock_);
}

uint64_t Microphone::Position() const {
    std::lock_guard lock(lock_);
    return position_;
}

std::vector<int16_t> Microphone::Heard(uint64_t first, size_t count) const {
    std::lock_guard lock(lock_);
    const uint64_t end = heard_first_ + heard_.size() / kChannels;
    if (first < heard_first_ || first >= end) return {};
    const size_t frames = std::min<uint64_t>(count, end - first);
    const auto begin = heard_.begin() + static_cast<ptrdiff_t>((first - heard_first_) * kChannels);
    return {begin, begin + static_cast<ptrdiff_t>(frames * kChannels)};
}

bool Microphone::HasAudio() const {
    return !queue_.empty() || (options_.idle != Idle::kNothing &&
                               options_.speed != MicrophoneOptions::kAsFastAsPossible);
}

void Microphone::Run() {
    pthread_setname_np(pthread_self(), "microphone");
    while (true) {
        Block block;
        {
            std::lock_guard lock(lock_);
            if (!WaitForBlock()) return;
            block = TakeBlock();
        }
        // Without the lock: the DSP's listeners and the progress may use the microphone.
        dsp_.Hear(block.samples, options_.boottime_ns());
        if (block.playback && block.playback->progress) block.playback->progress(block.played);
        {
            std::lock_guard lock(lock_);
            EndBlock(block);
        }
        changed_.notify_all();
    }
}

bool Microphone::WaitForBlock() {
    while (!stopping_) {
        if (!HasAudio()) {
            pace_start_.reset();
            host::Wait(changed_, lock_);
        } else if (options_.speed == MicrophoneOptions::kAsFastAsPossible) {
            return true;
        } else if (!host::WaitUntil(changed_, lock_, NextDue()) && HasAudio()) {
            return !stopping_;  // Without audio it was broken off meanwhile.
        }
    }
    return false;
}

// When the last frame of the next block is due.
std::chrono::steady_clock::time_point Microphone::NextDue() {
    if (!pace_start_) {
        pace_start_ = std::chrono::steady_clock::now();
        paced_frames_ = 0;
    }
    const double frames = static_cast<double>(paced_frames_ + kBlockFrames);
    return *pace_start_ + std::chrono::nanoseconds(static_cast<int64_t>(
                                  frames * 1e9 / wire::kSampleRateHz / options_.speed));
}

std::vector<int16_t> Microphone::NextSamples() {
    if (!queue_.empty()) {
        Playback& playback = *queue_.front();
        const size_t frames = std::min(kBlockFrames, playback.frames() - playback.next_frame);
        const auto begin =
                playback.samples.begin() + static_cast<ptrdiff_t>(playback.next_frame * kChannels);
        playback.next_frame += frames;
        return {begin, begin + static_cast<ptrdiff_t>(frames * kChannels)};
    }
    std::vector<int16_t> block(kBlockFrames * kChannels);
    if (options_.idle == Idle::kNoise) {
        const int span = 2 * options_.noise_amplitude + 1;
        std::generate(block.begin(), block.end(), [&] {
            // The generator's low bits are poor.
            return static_cast<int16_t>(static_cast<int>(noise_() >> 8) % span -
                                        options_.noise_amplitude);
        });
    }
    return block;
}

void Microphone::Record(std::span<const int16_t> samples) {
    heard_.insert(heard_.end(), samples.begin(), samples.end());
    if (heard_.size() <= kKeptFrames * kChannels) return;
    const size_t surplus = heard_.size() - kKeptFrames * kChannels;
    heard_.erase(heard_.begin(), heard_.begin() + static_cast<ptrdiff_t>(surplus));
    heard_first_ += surplus / kChannels;
}

Microphone::Block Microphone::TakeBlock() {
    Block block;
    if (!queue_.empty()) block.playback = queue_.front();
    block.samples = NextSamples();
    if (block.playback) block.played = block.playback->next_frame;
    paced_frames_ += block.samples.size() / kChannels;
    Record(block.samples);
    hearing_ = true;
    return block;
}

void Microphone::EndBlock(const Block& block) {
    hearing_ = false;
    position_ += block.samples.size() / kChannels;
    // Not so when Stop() has taken it away in the meantime.
    const bool is_queued = !queue_.empty() && queue_.front() == block.playback;
    if (is_queued && block.played == block.playback->frames()) {
        block.playback->finished.set_value(true);
        queue_.pop_front();
    }
}

}  // namespace virtual_dsp
