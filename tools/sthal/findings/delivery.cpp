#include "tools/sthal/findings/delivery.h"

#include <cstdlib>

namespace sthal {

namespace {

// How far the timestamp of a hotword may be from the truth.
constexpr int64_t kTimestampToleranceNs = 2'000'000;

// The start of a capture may differ from where it should be by one block of the microphone.
constexpr size_t kStartToleranceFrames = 160;

Delivery::Problem ProblemOfPlace(const DeliveryFacts& known) {
    const size_t first = known.comparison.first_frame;
    const size_t hotword_begin = known.expected->begin + known.lead_frames;
    const size_t hotword_end = known.expected->end + known.lead_frames;
    const size_t preroll = static_cast<size_t>(known.preroll_ms) * audio::kSampleRateHz / 1000;
    if (first >= hotword_end) return Delivery::Problem::kNoPreroll;
    if (first + preroll + kStartToleranceFrames < hotword_begin) {
        return Delivery::Problem::kWrongPlace;
    }
    return Delivery::Problem::kNone;
}

Delivery::Problem FindProblem(const DeliveryFacts& known) {
    using enum Delivery::Problem;
    const bool has_event = known.event_handle.has_value();
    if (known.wants_event && !has_event) return known.expected ? kEventMissing : kNone;
    if (has_event && !known.expected) return kNobodySpoke;
    if (has_event && known.event_handle != known.handle) return kOtherModel;
    if (!known.capture_opened) return kNotOpened;
    if (!known.comparison.found) return kOtherAudio;
    if (!known.comparison.IsExact()) return kDiffers;
    if (!known.wants_event) return kNone;
    const auto of_place = ProblemOfPlace(known);
    if (of_place != kNone) return of_place;
    const bool is_off = std::llabs(known.timestamp_error_ns) > kTimestampToleranceNs;
    return is_off && !known.is_ambient ? kTimestampOff : kNone;
}

}  // namespace

Delivery Judge(const DeliveryFacts& known) {
    return {.problem = FindProblem(known),
            .wants_event = known.wants_event,
            .is_ambient = known.is_ambient,
            .has_event = known.event_handle.has_value(),
            .callback_latency_ns = known.callback_latency_ns,
            .timestamp_error_ns = known.timestamp_error_ns};
}

}  // namespace sthal
