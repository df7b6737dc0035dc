#include "tools/sthal/phone/capture_reader.h"

#include <algorithm>
#include <utility>

#include "tools/audio/wav.h"

namespace sthal {

namespace {

// How far before its opening a capture may reach back: the DSP keeps 8 s.
constexpr uint64_t kHistoryFrames = uint64_t{9} * audio::kSampleRateHz;

}  // namespace

CaptureReader::CaptureReader(Phone& phone, std::unique_ptr<CaptureStream> stream, Until until,
                             bool is_ambient, std::string file)
    : phone_(phone),
      stream_(std::move(stream)),
      is_ambient_(is_ambient),
      file_(std::move(file)),
      opened_at_(phone.HeardFrames()),
      thread_([this, until = std::move(until)] { ReadUntil(until); }) {}

CaptureReader::~CaptureReader() {
    (void)Stop();  // Who wants to know of the file asks for it before.
}

void CaptureReader::ReadUntil(const Until& until) {
    std::optional<size_t> wanted = until.frames;
    while (!stop_ && (!wanted || stream_->sound().frames() < *wanted)) {
        if (!stream_->ReadOnce()) break;
        if (!wanted && until.end_of != nullptr) wanted = FramesUntilEndOf(*until.end_of);
    }
    stream_->Close();
    is_finished_ = true;
}

// Where the capture began, its first bulk tells.
size_t CaptureReader::FramesUntilEndOf(const PlayingRecording& playback) const {
    const audio::Comparison begin = CompareWithMicrophones();
    const uint64_t end = playback.first_frame() + playback.frames();
    const uint64_t first = begin.found ? begin.first_frame : playback.first_frame();
    // Whole bulks, so that no read waits for what comes after the end.
    const size_t bulk = stream_->sound().frames();
    return bulk == 0 ? 0 : (end - std::min(end, first)) / bulk * bulk;
}

host::Result<void> CaptureReader::Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (file_.empty() || std::exchange(is_written_, true)) return {};
    return audio::WriteWav(file_, stream_->sound());
}

audio::Comparison CaptureReader::CompareWith(const audio::Sound& heard, size_t frames) const {
    audio::Sound captured = stream_->sound();
    captured.samples.resize(std::min(frames, captured.frames()) *
                            static_cast<size_t>(captured.channels));
    return is_ambient_ ? audio::CompareMulawCapture(heard, captured)
                       : audio::CompareCapture(heard, captured);
}

audio::Comparison CaptureReader::CompareWithMicrophones(size_t frames) const {
    const uint64_t first = opened_at_ - std::min(opened_at_, kHistoryFrames);
    const uint64_t end = phone_.HeardFrames();
    audio::Comparison comparison =
            CompareWith(phone_.Heard(first, end + audio::kSampleRateHz - first), frames);
    comparison.CountFrom(first);
    return comparison;
}

}  // namespace sthal
