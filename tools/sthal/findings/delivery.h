#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/audio/compare.h"
#include "tools/audio/sound.h"
#include "tools/sthal/facts/run_facts.h"

namespace sthal {

// What is known of one detection, or of one capture without a detection.
struct DeliveryFacts {
    bool wants_event = true;  // A model was loaded and started.
    bool is_ambient = false;
    std::optional<audio::FrameRange> expected{};  // Of the recording; none: no hotword in it.
    int preroll_ms = 0;

    std::optional<int> handle{};        // Of the model.
    std::optional<int> event_handle{};  // Of the event that came.
    int64_t callback_latency_ns = 0;    // From the record to the callback.

    bool capture_opened = false;
    size_t lead_frames = 0;  // By how much the reference begins before the recording.
    audio::Comparison comparison{};
    // The stream's timestamp of the hotword's end, less the truth; only with an expected hotword.
    int64_t timestamp_error_ns = 0;
};

Delivery Judge(const DeliveryFacts& known);

}  // namespace sthal
