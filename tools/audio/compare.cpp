#include "tools/audio/compare.h"

#include <android-base/stringprintf.h>

#include <algorithm>

#include "host/virtual_dsp/dsp/mulaw_encoder.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;

constexpr size_t kMaxDeparturesShown = 8;

// The mu-law expansion of ITU-T G.711.
constexpr int16_t ExpandMulaw(uint8_t code) {
    constexpr int kBias = 0x84;
    const int inverted = ~code & 0xFF;
    const int exponent = (inverted >> 4) & 0x07;
    const int magnitude = ((((inverted & 0x0F) << 3) + kBias) << exponent) - kBias;
    return static_cast<int16_t>((inverted & 0x80) != 0 ? -magnitude : magnitude);
}
static_assert(ExpandMulaw(0xFF) == 0 && ExpandMulaw(0x00) == -32124 && ExpandMulaw(0x80) == 32124);

// A frame of one or two samples as one number, and back.
std::vector<uint32_t> Pack(const Sound& first, const Sound* second) {
    std::vector<uint32_t> frames(first.frames());
    for (size_t i = 0; i < frames.size(); ++i) {
        frames[i] = static_cast<uint16_t>(first.samples[i]);
        if (second != nullptr) {
            frames[i] |= uint32_t{static_cast<uint16_t>(second->samples[i])} << 16;
        }
    }
    return frames;
}

std::array<int16_t, 2> Unpack(uint32_t frame) {
    return {static_cast<int16_t>(frame & 0xFFFF), static_cast<int16_t>(frame >> 16)};
}

// The capture against the microphones in one of their two orders.
Comparison CompareInOrder(const Sound& microphones, const Sound& capture, int first) {
    const bool both = capture.channels == 2;
    const Sound heard[2] = {microphones.Channel(first), microphones.Channel(1 - first)};
    const Sound captured[2] = {capture.Channel(0), capture.Channel(1)};
    const std::vector<uint32_t> expected = Pack(heard[0], both ? &heard[1] : nullptr);
    const std::vector<uint32_t> got = Pack(captured[0], both ? &captured[1] : nullptr);
    Alignment alignment = Align(expected, got);

    Comparison comparison;
    comparison.found = alignment.found;
    comparison.channels = capture.channels;
    comparison.capture_frames = capture.frames();
    comparison.first_microphone = first;
    comparison.first_frame = alignment.first_frame;
    comparison.equal_frames = alignment.equal_frames;
    comparison.departures = std::move(alignment.departures);
    for (const auto& [capture_frame, microphone_frame] : alignment.changed) {
        comparison.changed.push_back({capture_frame, microphone_frame,
                                      Unpack(expected[microphone_frame]),
                                      Unpack(got[capture_frame])});
    }
    return comparison;
}

std::string Values(const std::array<int16_t, 2>& frame, int channels) {
    return channels == 1 ? StringPrintf("%d", frame[0]) : StringPrintf("%d %d", frame[0], frame[1]);
}

const char* KindName(Departure::Kind kind) {
    switch (kind) {
        case Departure::Kind::kChanged:
            return "changed";
        case Departure::Kind::kMissing:
            return "missing";
        case Departure::Kind::kDoubled:
            return "doubled";
        case Departure::Kind::kForeign:
            return "not from the microphones";
    }
    return "";
}

std::string SummaryOf(const Comparison& comparison) {
    std::string text = StringPrintf("capture starts at %.3f s, ", Seconds(comparison.first_frame));
    if (comparison.equal_frames == comparison.capture_frames) {
        text += StringPrintf("%zu frames equal", comparison.equal_frames);
    } else {
        text += StringPrintf("%zu of %zu frames equal", comparison.equal_frames,
                             comparison.capture_frames);
    }
    if (comparison.departures.empty()) {
        text += ", no frame missing or doubled";
    } else {
        using Kind = Departure::Kind;
        for (const Kind kind : {Kind::kChanged, Kind::kMissing, Kind::kDoubled, Kind::kForeign}) {
            if (const size_t frames = comparison.Frames(kind); frames > 0) {
                text += StringPrintf(", %zu %s", frames, KindName(kind));
            }
        }
    }
    if (comparison.first_microphone == 1) {
        text += comparison.channels == 1 ? " (second microphone)" : " (microphones swapped)";
    }
    return text;
}

}  // namespace

size_t Comparison::Frames(Departure::Kind kind) const {
    size_t frames = 0;
    for (const Departure& departure : departures) {
        if (departure.kind == kind) frames += departure.frames;
    }
    return frames;
}

void Comparison::CountFrom(size_t earlier) {
    first_frame += earlier;
    for (Departure& departure : departures) departure.microphone_frame += earlier;
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
    const size_t shown = std::min(departures.size(), kMaxDeparturesShown);
    for (size_t i = 0; i < shown; ++i) {
        const Departure& departure = departures[i];
        text += StringPrintf("\n  frame %zu of the capture: %zu %s (microphone frame %zu, %.3f s)",
                             departure.capture_frame, departure.frames, KindName(departure.kind),
                             departure.microphone_frame, Seconds(departure.microphone_frame));
    }
    if (departures.size() > shown) {
        text += StringPrintf("\n  and %zu more such places", departures.size() - shown);
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
