#include "tools/sthal/phone/capture.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace sthal {

namespace {

using virtual_dsp::BoottimeNow;

// One line of progress for this much audio.
constexpr size_t kReportFrames = audio::kSampleRateHz / 2;

std::string PositionText(size_t frames, double position_s) {
    char text[96];
    (void)std::snprintf(text, sizeof(text), "position %6zu frames (%.3f s), time stamp %.6f s",
                        frames, audio::Seconds(frames), position_s);
    return text;
}

}  // namespace

audio::Result<std::unique_ptr<Capture>> Capture::Open(Phone& phone, const CaptureOptions& options) {
    using Opened = audio::Result<std::unique_ptr<Capture>>;
    std::unique_ptr<Capture> capture(new Capture(phone, options));
    soundtrigger::SoundTriggerDriverOperationsBuilder builder;
    builder.hal = &phone.hal();
    builder.io_handle = options.io_handle;
    builder.channel_count = options.channels;
    builder.is_internal_force = options.is_internal_force;
    capture->stream_ = builder.Build();
    std::string error;
    if (capture->stream_ == nullptr) {
        error = "the HAL refused internal force recognition";
    } else if (!capture->stream_->Start()) {
        error = "no detection to capture on io handle " + std::to_string(options.io_handle);
    }
    capture->RecordOpening(error);
    if (!error.empty()) return Opened::Error(error);
    phone.timeline().Line(Lane::kCapture,
                          "stream opened on io handle " + std::to_string(options.io_handle) + ", " +
                                  std::to_string(options.channels) +
                                  (options.channels == 1 ? " channel" : " channels"));
    return Opened::Of(std::move(capture));
}

Capture::Capture(Phone& phone, const CaptureOptions& options)
    : phone_(phone), options_(options), opened_ns_(BoottimeNow()) {
    sound_.channels = options.channels;
}

Capture::~Capture() = default;

bool Capture::ReadOnce() {
    const int bytes = stream_->GetBulkSize() * stream_->GetFrameSize();
    std::vector<int16_t> bulk(static_cast<size_t>(bytes) / sizeof(int16_t));
    const int64_t begin_ns = BoottimeNow();
    const int got = stream_->Read(reinterpret_cast<unsigned char*>(bulk.data()), bytes);
    bulk.resize(static_cast<size_t>(std::max(got, 0)) / sizeof(int16_t));
    const bool is_silent = std::ranges::all_of(bulk, [](int16_t sample) { return sample == 0; });
    RecordRead(begin_ns, got, got > 0 && is_silent);
    if (got < 0) {
        phone_.timeline().Line(Lane::kCapture, "read failed: " + std::to_string(got));
        return false;
    }
    const bool is_first = sound_.samples.empty();
    sound_.samples.insert(sound_.samples.end(), bulk.begin(), bulk.end());
    long frames = 0;
    long time_ns = 0;
    if (!stream_->GetPosition(frames, time_ns)) return true;
    if (is_first) first_position_ns_ = time_ns;
    if (!is_silent && !has_audio_) {
        has_audio_ = true;
        phone_.timeline().Line(
                Lane::kCapture,
                "first audio " + DurationText(BoottimeNow() - opened_ns_) + " after opening");
    }
    if (sound_.frames() >= next_report_frame_) {
        next_report_frame_ += kReportFrames;
        const double shown_s = static_cast<double>(time_ns - phone_.timeline().start_ns()) / 1e9;
        phone_.timeline().Line(Lane::kCapture, PositionText(static_cast<size_t>(frames), shown_s));
    }
    return true;
}

void Capture::RecordOpening(const std::string& error) {
    RecordedStream stream{.io_handle = options_.io_handle,
                          .channels = options_.channels,
                          .is_internal = options_.is_internal_force,
                          .begin_ns = opened_ns_,
                          .error = error};
    if (error.empty()) {
        stream.opened_ns = BoottimeNow();
        stream.bulk_frames = stream_->GetBulkSize();
    }
    recorded_as_ = phone_.timeline().record().AddStream(std::move(stream));
}

void Capture::RecordRead(int64_t begin_ns, int result, bool is_silent) {
    RunRecord& record = phone_.timeline().record();
    if (!record.is_enabled()) return;
    RecordedRead read{.begin_ns = begin_ns,
                      .end_ns = BoottimeNow(),
                      .result = result,
                      .is_silent = is_silent};
    long frames = 0;
    long time_ns = 0;
    if (stream_->GetPosition(frames, time_ns)) {
        read.position = frames;
        read.time_stamp_ns = time_ns;
    }
    read.left = phone_.RecordFill();
    record.AddRead(recorded_as_, read);
}

void Capture::Close() {
    if (stream_ == nullptr) return;
    (void)stream_->Stop();
    stream_.reset();
    phone_.timeline().record().CloseStream(recorded_as_);
    phone_.timeline().Line(Lane::kCapture,
                           "stream closed after " + std::to_string(sound_.frames()) + " frames" +
                                   (has_audio_ ? "" : ", none of them audio: all samples are 0"));
}

}  // namespace sthal
