#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/audio/sound.h"
#include "tools/sthal/facts/record.h"

namespace sthal {

// A place in a recording that sounds like a model's pattern.
struct SpokenHotword {
    size_t playback = 0;        // Of RunFacts::playbacks.
    size_t model = 0;           // Of RunFacts::models.
    audio::FrameRange range{};  // Of the recording.
    double likeness = 0;        // 0..1, as a threshold.
};

/**
 * Where the patterns of the run's models lie in its recordings. What is less alike than any model
 * would be asked to accept does not count. Takes about a second for a minute of recording.
 */
std::vector<SpokenHotword> FindSpoken(const RunFacts& facts);

enum class MissReason {
    kDspOffline,
    kInternalRecognition,
    kEngineMismatch,
    kNotStarted,
    kStartedTooLate,
    kNotStartedAgain,
    kRefusedTransition,
    kRecordDropped,
    kReadFailed,
    kStoppedMeanwhile,
    kBelowThreshold,
    kUnknown,
};

struct MissedHotword {
    SpokenHotword spoken{};
    int64_t heard_ns = 0;  // When its last frame was heard.
    MissReason reason = MissReason::kUnknown;
    std::string why{};  // A sentence with the values that count.
};

// Those of `spoken` that were heard to their end and of which no event came.
std::vector<MissedHotword> ExplainMissed(const RunFacts& facts,
                                         const std::vector<SpokenHotword>& spoken);

}  // namespace sthal
