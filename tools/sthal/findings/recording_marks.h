#pragma once

#include <cstddef>
#include <vector>

#include "tools/audio/sound.h"
#include "tools/sthal/findings/run_findings.h"

namespace sthal {

// Something to show in a recording.
struct RecordingMark {
    enum class Kind {
        kSpoken,    // A hotword of which an event came.
        kMissed,    // A hotword of which none came.
        kDetected,  // The instant of a detection: the range is empty.
        kCaptured,
        kSilent,  // Captured as silence instead of audio.
    };
    Kind kind = Kind::kSpoken;
    audio::FrameRange range{};  // Of the recording.

    size_t model = 0;  // Of kSpoken and kMissed: of RunFacts::models.
    // Of kDetected.
    virtual_dsp::Engine engine = virtual_dsp::Engine::kHotword;
    virtual_dsp::DetectionRaised::Origin origin = virtual_dsp::DetectionRaised::Origin::kHeard;
    // Of kCaptured and kSilent.
    bool is_internal = false;   // By an internal recognition.
    bool is_listed = true;      // Else it is one of the stretches that another mark stands for.
    size_t more_stretches = 0;  // That this mark stands for in a list.
};

// What is to be seen in one of RunFacts::recordings: hotwords, detections, and what was captured.
std::vector<RecordingMark> MarksOf(const RunFacts& facts, const RunFindings& found,
                                   size_t recording);

// At most so many recordings, in their order: the last one, in which a run fails that fails at its
// end, then those with a missed hotword, then the latest.
std::vector<size_t> RecordingsToShow(const RunFacts& facts, const RunFindings& found, size_t most);

}  // namespace sthal
