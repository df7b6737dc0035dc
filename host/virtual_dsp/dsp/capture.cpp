#include "host/virtual_dsp/dsp/capture.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/common/mulaw_encoder.h"

namespace virtual_dsp {

static_assert(kMicrophones == wire::kHotwordChannels, "hotword audio is the history as it is");

void Capture::Begin(Engine owner, uint64_t first) {
    owner_ = owner;
    next_ = first;
    bytes_delivered_ = 0;
}

size_t Capture::BytesReady(const MicrophoneHistory& history) const {
    if (!owner_) return 0;
    const uint64_t next = std::max(next_, history.oldest());
    return history.end() > next ? (history.end() - next) * FrameBytes() : 0;
}

Capture::ReadResult Capture::Read(const MicrophoneHistory& history, std::span<uint8_t> out) {
    const size_t frames = std::min(BytesReady(history), out.size()) / FrameBytes();
    if (frames == 0) return {};
    const uint64_t first = std::max(next_, history.oldest());
    const ReadResult result{frames * FrameBytes(), first, first - next_};
    if (port_ == PcmPort::kHotword) {
        std::vector<int16_t> pcm(frames * kMicrophones);
        history.Copy(first, pcm);
        std::memcpy(out.data(), pcm.data(), result.bytes);
    } else {
        for (size_t i = 0; i < frames; ++i) out[i] = EncodeMulaw(history.Sample(first + i, 0));
    }
    next_ = first + frames;
    bytes_delivered_ += result.bytes;
    return result;
}

}  // namespace virtual_dsp
