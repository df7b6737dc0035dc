#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio/compare.h"
#include "tools/audio/sound.h"
#include "tools/sthal/commands/demo.h"

namespace sthal {

// What a run of the demo found out.
struct Findings {
    bool wants_event = true;  // A model was loaded and started.
    bool is_ambient = false;
    std::optional<audio::FrameRange> expected;  // Of the recording; none: no hotword in it.
    int preroll_ms = 0;

    std::optional<int> handle;        // Of the model.
    std::optional<int> event_handle;  // Of the event that came.
    int64_t callback_latency_ns = 0;  // From the record to the callback.

    bool capture_opened = false;
    size_t lead_frames = 0;  // By how much the reference begins before the recording.
    audio::Comparison comparison;
    // The hotword's instant as the stream told it, less the truth; only with an expected hotword.
    int64_t instant_error_ns = 0;

    std::vector<std::string> problems;  // Found on the way.
};

struct Verdict {
    DemoStatus status = DemoStatus::kFailed;
    std::string text;  // One line.
};

Verdict Judge(const Findings& findings);

// Holds a capture against what the microphones heard; ambient audio after the same companding.
audio::Comparison Compare(const audio::Sound& heard, const audio::Sound& capture, bool is_ambient);

}  // namespace sthal
