#include "tools/sthal/phone/capture_stream.h"

#include <algorithm>
#include <utility>

#include "host/virtual_dsp/dsp/journal.h"

namespace sthal {

using virtual_dsp::BoottimeNow;

host::Result<std::unique_ptr<CaptureStream>, StreamRefusal> CaptureStream::Open(
        Phone& phone, RunRecord& record, const CaptureOptions& options) {
    std::unique_ptr<CaptureStream> capture(new CaptureStream(phone, record, options));
    const StreamRefusal refusal = capture->BuildAndStart();
    if (refusal != StreamRefusal::kNone) return ::android::base::unexpected(refusal);
    return capture;
}

CaptureStream::CaptureStream(Phone& phone, RunRecord& record, const CaptureOptions& options)
    : phone_(phone), record_(record), options_(options), begin_ns_(BoottimeNow()) {
    sound_.channels = options.channels;
}

CaptureStream::~CaptureStream() = default;

StreamRefusal CaptureStream::BuildAndStart() {
    soundtrigger::SoundTriggerDriverOperationsBuilder builder;
    builder.hal = &phone_.service()->hal();
    builder.io_handle = options_.io_handle;
    builder.channel_count = options_.channels;
    builder.is_internal_force = options_.is_internal;
    stream_ = builder.Build();
    StreamRefusal refusal = StreamRefusal::kNone;
    if (stream_ == nullptr) {
        refusal = StreamRefusal::kInternalRecognitionRefused;
    } else if (!stream_->Start()) {
        refusal = StreamRefusal::kNoDetection;
    }
    Stream noted{.io_handle = options_.io_handle,
                 .channels = options_.channels,
                 .is_internal = options_.is_internal,
                 .begin_ns = begin_ns_,
                 .refusal = refusal};
    if (refusal == StreamRefusal::kNone) {
        noted.opened_ns = opened_ns_ = BoottimeNow();
        noted.bulk_frames = stream_->GetBulkSize();
    }
    index_ = record_.AddStream(std::move(noted));
    return refusal;
}

bool CaptureStream::ReadOnce() {
    const int bytes = stream_->GetBulkSize() * stream_->GetFrameSize();
    std::vector<int16_t> bulk(static_cast<size_t>(bytes) / sizeof(int16_t));
    Read read{.begin_ns = BoottimeNow()};
    read.result = stream_->Read(reinterpret_cast<unsigned char*>(bulk.data()), bytes);
    read.end_ns = BoottimeNow();
    bulk.resize(static_cast<size_t>(std::max(read.result, 0)) / sizeof(int16_t));
    read.is_silent = read.result > 0 && std::all_of(bulk.begin(), bulk.end(),
                                                    [](int16_t sample) { return sample == 0; });
    long frames = 0;
    long time_ns = 0;
    if (read.result >= 0 && stream_->GetPosition(frames, time_ns)) {
        read.position = frames;
        read.timestamp_ns = time_ns;
        if (sound_.samples.empty()) first_timestamp_ns_ = time_ns;
    }
    if (record_.is_enabled()) read.left = phone_.NoteBufferFill();
    const size_t frames_before = sound_.frames();
    sound_.samples.insert(sound_.samples.end(), bulk.begin(), bulk.end());
    const bool is_first_audio = read.result >= 0 && !read.is_silent && !has_audio_;
    has_audio_ = has_audio_ || is_first_audio;
    record_.Add(StreamRead{.stream = index_,
                           .read = read,
                           .opened_ns = opened_ns_,
                           .frames_before = frames_before,
                           .frames = sound_.frames(),
                           .is_first_audio = is_first_audio});
    return read.result >= 0;
}

void CaptureStream::Close() {
    if (stream_ == nullptr) return;
    (void)stream_->Stop();  // The stream ends whatever the HAL makes of it.
    stream_.reset();
    record_.Add(StreamClosed{.stream = index_, .frames = sound_.frames(), .has_audio = has_audio_});
}

}  // namespace sthal
