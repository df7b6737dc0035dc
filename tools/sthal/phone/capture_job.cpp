#include "tools/sthal/phone/capture_job.h"

#include <algorithm>
#include <utility>

#include "tools/audio/wav.h"
#include "tools/sthal/findings/verdict.h"

namespace sthal {

namespace {

// How far before its opening a capture may reach back: the DSP keeps 8 s.
constexpr uint64_t kHistoryFrames = uint64_t{9} * audio::kSampleRateHz;

}  // namespace

CaptureJob::CaptureJob(Phone& phone, std::unique_ptr<Capture> capture, std::optional<size_t> frames,
                       bool is_ambient, std::string file)
    : phone_(phone),
      capture_(std::move(capture)),
      is_ambient_(is_ambient),
      file_(std::move(file)),
      opened_at_(phone.board().microphone().Position()),
      thread_([this, frames] { Read(frames); }) {}

void CaptureJob::Read(std::optional<size_t> frames) {
    while (!stop_ && (!frames || capture_->sound().frames() < *frames)) {
        if (!capture_->ReadOnce()) break;
    }
    capture_->Close();
    is_finished_ = true;
}

std::string CaptureJob::Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (file_.empty() || std::exchange(is_written_, true)) return {};
    return audio::WriteWav(file_, capture_->sound());
}

audio::Comparison CaptureJob::CompareWithMicrophones(size_t frames) const {
    virtual_dsp::Microphone& microphone = phone_.board().microphone();
    const uint64_t first = opened_at_ - std::min(opened_at_, kHistoryFrames);
    const uint64_t end = microphone.Position();
    audio::Sound heard;
    heard.channels = 2;
    heard.samples = microphone.Heard(first, end + audio::kSampleRateHz - first);
    audio::Sound captured = capture_->sound();
    captured.samples.resize(std::min(frames, captured.frames()) *
                            static_cast<size_t>(captured.channels));
    audio::Comparison comparison = Compare(heard, captured, is_ambient_);
    comparison.CountFrom(first);
    return comparison;
}

}  // namespace sthal
