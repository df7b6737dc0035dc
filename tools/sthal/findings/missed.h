#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/spoken.h"
#include "tools/sthal/findings/states.h"

namespace sthal {

// Why no event came of a hotword, with the values that say more.
struct MissReason {
    enum class Kind {
        // The DSP did not detect it.
        kLoadedIntoOtherEngine,  // `refusal`: what the DSP answered to that.
        kDspDown,
        kReportedOffline,
        kNeverReportedOnline,
        kInternalRecognition,
        kNotStarted,          // `ended_by`, `failed_starts`, `was_model_refused`.
        kDetectedAlready,     // The engine detects once after each start.
        kEngineNotDetecting,  // The HAL counted the model as started; `engine_state`.
        kStartedTooLate,
        kBelowThreshold,  // The values are the hotword's and the model's.
        kNotDetected,     // The same.

        // The DSP detected it, and the record did not become an event.
        kRecordDropped,  // `dropped_by`.
        kReadFailed,     // `logged`.
        kNeverRead,
        kTransitionRefused,  // `logged`.
        kOnlyOtherEnginesStarted,
        kNoClient,
        kTakenNotDelivered,  // By the HAL, which dropped it: the model was stopped or unloaded at
                             // that moment, or has no callback.
    };
    Kind kind = Kind::kNotDetected;
    virtual_dsp::JournalEntry refusal{};
    std::optional<Operation> ended_by{};  // None: it was never started.
    std::vector<int> failed_starts{};     // Results.
    bool was_model_refused = false;       // By the HAL.
    EngineState engine_state = EngineState::kIdle;
    DropCause dropped_by{};
    std::string logged{};  // By the HAL.
};

struct MissedHotword {
    SpokenHotword spoken{};
    int64_t heard_ns = 0;  // When its last frame was heard.
    MissReason reason{};
};

// Those of `spoken` that were heard to their end and of which no event came.
std::vector<MissedHotword> ExplainMissed(const RunFacts& facts, std::span<const StateSpan> states,
                                         std::span<const DetectionTrail> trails,
                                         std::span<const SpokenHotword> spoken);

}  // namespace sthal
