#include "tools/audio/compare.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <map>

#include "host/common/mulaw_encoder.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;

constexpr size_t kMaxMismatchesShown = 8;

// The mu-law expansion of ITU-T G.711.
constexpr int16_t ExpandMulaw(uint8_t code) {
    constexpr int kBias = 0x84;
    const int inverted = ~code & 0xFF;
    const int exponent = (inverted >> 4) & 0x07;
    const int magnitude = ((((inverted & 0x0F) << 3) + kBias) << exponent) - kBias;
    return static_cast<int16_t>((inverted & 0x80) != 0 ? -magnitude : magnitude);
}
static_assert(ExpandMulaw(0xFF) == 0 && ExpandMulaw(0x00) == -32124 && ExpandMulaw(0x80) == 32124);

std::vector<uint32_t> Pack(const Sound& sound, int first_channel, bool both) {
    const Sound first = sound.Channel(first_channel);
    const Sound second = sound.Channel(1 - first_channel);
    std::vector<uint32_t> frames(sound.frames());
    for (size_t i = 0; i < frames.size(); ++i) {
        frames[i] = static_cast<uint16_t>(first.samples[i]);
        if (both) frames[i] |= uint32_t{static_cast<uint16_t>(second.samples[i])} << 16;
    }
    return frames;
}

Comparison CompareInOrder(const Sound& microphones, const Sound& capture, int first) {
    const bool both = capture.channels == 2;
    Comparison comparison{Align(Pack(microphones, first, both), Pack(capture, 0, both))};
    comparison.channels = capture.channels;
    comparison.capture_frames = capture.frames();
    comparison.first_microphone = first;
    return comparison;
}

std::string Values(uint32_t frame, int channels) {
    const int first = static_cast<int16_t>(frame & 0xFFFF);
    const int second = static_cast<int16_t>(frame >> 16);
    return channels == 1 ? StringPrintf("%d", first) : StringPrintf("%d %d", first, second);
}

const char* KindName(Mismatch::Kind kind) {
    switch (kind) {
        case Mismatch::Kind::kChanged:
            return "changed";
        case Mismatch::Kind::kMissing:
            return "missing";
        case Mismatch::Kind::kDuplicated:
            return "duplicated";
        case Mismatch::Kind::kInserted:
            return "inserted";
    }
    return "";
}

std::string SummaryOf(const Comparison& comparison) {
    const bool all_equal = comparison.equal_frames == comparison.capture_frames;
    std::string text = StringPrintf(
            "capture starts at %.3f s, %zu%s frames equal", Seconds(comparison.first_frame),
            comparison.equal_frames,
            all_equal ? "" : StringPrintf(" of %zu", comparison.capture_frames).c_str());
    if (comparison.mismatches.empty()) text += ", no frame missing or duplicated";
    std::map<Mismatch::Kind, size_t> frames;
    for (const Mismatch& mismatch : comparison.mismatches) {
        frames[mismatch.kind] += mismatch.frames;
    }
    for (const auto& [kind, count] : frames) {
        text += StringPrintf(", %zu %s", count, KindName(kind));
    }
    if (comparison.first_microphone == 1) {
        text += comparison.channels == 1 ? " (second microphone)" : " (microphones swapped)";
    }
    return text;
}

}  // namespace

void Comparison::CountFrom(size_t earlier) {
    first_frame += earlier;
    for (Mismatch& mismatch : mismatches) mismatch.microphone_frame += earlier;
    for (ChangedFrame& frame : changed) frame.microphone_frame += earlier;
}

std::string Comparison::ToString() const {
    if (capture_frames == 0) return "nothing was captured";
    if (!found) {
        return StringPrintf(
                "none of the %zu captured frames was found in what the microphones heard",
                capture_frames);
    }
    std::string text = SummaryOf(*this);
    const size_t shown = std::min(mismatches.size(), kMaxMismatchesShown);
    for (size_t i = 0; i < shown; ++i) {
        const Mismatch& mismatch = mismatches[i];
        text += StringPrintf("\n  frame %zu of the capture: %zu %s (microphone frame %zu, %.3f s)",
                             mismatch.capture_frame, mismatch.frames, KindName(mismatch.kind),
                             mismatch.microphone_frame, Seconds(mismatch.microphone_frame));
    }
    if (mismatches.size() > shown) {
        text += StringPrintf("\n  and %zu more such places", mismatches.size() - shown);
    }
    for (const ChangedFrame& frame : changed) {
        text += StringPrintf("\n  frame %zu of the capture: expected %s, got %s",
                             frame.capture_frame, Values(frame.expected, channels).c_str(),
                             Values(frame.got, channels).c_str());
    }
    return text;
}

Comparison CompareCapture(const Sound& microphones, const Sound& capture) {
    Comparison straight = CompareInOrder(microphones, capture, 0);
    if (straight.IsExact() || microphones.channels == 1) return straight;
    Comparison swapped = CompareInOrder(microphones, capture, 1);
    return swapped.equal_frames > straight.equal_frames ? swapped : straight;
}

Comparison CompareMulawCapture(const Sound& microphones, const Sound& capture) {
    Sound companded = microphones;
    for (int16_t& sample : companded.samples) {
        sample = ExpandMulaw(virtual_dsp::EncodeMulaw(sample));
    }
    return CompareCapture(companded, capture);
}

}  // namespace sthal::audio
