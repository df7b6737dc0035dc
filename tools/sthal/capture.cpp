#include "tools/sthal/capture.h"

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
    if (capture->stream_ == nullptr) {
        return Opened::Error("the HAL refused internal force recognition");
    }
    if (!capture->stream_->Start()) {
        return Opened::Error("no detection to capture on io handle " +
                             std::to_string(options.io_handle));
    }
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
    const int got = stream_->Read(reinterpret_cast<unsigned char*>(bulk.data()), bytes);
    if (got < 0) {
        phone_.timeline().Line(Lane::kCapture, "read failed: " + std::to_string(got));
        return false;
    }
    bulk.resize(static_cast<size_t>(got) / sizeof(int16_t));
    const bool is_first = sound_.samples.empty();
    sound_.samples.insert(sound_.samples.end(), bulk.begin(), bulk.end());
    long frames = 0;
    long time_ns = 0;
    if (!stream_->GetPosition(frames, time_ns)) return true;
    if (is_first) {
        first_position_ns_ = time_ns;
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

void Capture::Close() {
    if (stream_ == nullptr) return;
    (void)stream_->Stop();
    stream_.reset();
    phone_.timeline().Line(Lane::kCapture,
                           "stream closed after " + std::to_string(sound_.frames()) + " frames");
}

}  // namespace sthal
