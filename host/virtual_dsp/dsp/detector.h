#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/virtual_dsp/correlator/correlator.h"

namespace virtual_dsp {

struct Detection {
    uint64_t last_frame = 0;  // The frame at which the template ends: the detection's timestamp.
    uint32_t template_frames = 0;  // It begins that many frames earlier, less one.
    float score = 0;
};

// Listens to one microphone for one template.
//
// The detection is the correlation's peak, a score of the threshold or more that nothing within
// the following 20 ms exceeds. Shorter than that, voiced speech would fire one pitch period early.
// Work is done in the Correlator's blocks counted from the first frame, so the outcome does not
// depend on how the audio is cut into calls; it comes at most 40 ms after the peak.
//
// Not thread-safe; different detectors are independent.
class Detector {
  public:
    // `first_frame` is the number of the first frame that Hear() will be given. Only audio from
    // there on counts, so nothing heard before can be detected. The template must not be constant.
    Detector(std::span<const int16_t> pcm_template, float threshold, uint64_t first_frame);

    // Takes the next frames; returns the first detection in them, and is then of no more use.
    std::optional<Detection> Hear(std::span<const int16_t> audio);

  private:
    std::optional<Detection> HearBlock();

    const uint32_t template_frames_;
    const float threshold_;
    Correlator correlator_;
    std::vector<int16_t> block_;  // The block that is being filled.
    uint64_t next_frame_;         // The first one of which the score is not known yet.
    std::optional<Detection> peak_;
};

}  // namespace virtual_dsp
