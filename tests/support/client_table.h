#pragma once

#include <vector>

#include "tests/support/simple_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** What the HAL asks of a client, in the order of the columns below. */
enum class Request { kUnload, kLoad, kDetect, kCallback, kBuffer, kForce };

/** How a client carries out a request. A call that fails ends it and leaves the state as it is. */
struct Transition {
    struct Call {
        DspOp op;
        const char* failure = "";  // How the log calls it when it fails.
    };

    int next = -1;  // The state that follows; -1: the request is refused in silence.
    std::vector<Call> calls = {};

    bool is_allowed() const { return next >= 0; }
};

namespace client_table {

// A client's states, as RuntimeState numbers them.
enum State { kUnloaded, kLoaded, kDetecting, kCallback, kBuffering, kForced };

// A restart that fails logs the words of a stop: that is meant so.
inline constexpr Transition::Call kLoad{DspOp::kLoad};
inline constexpr Transition::Call kUnload{DspOp::kUnload};
inline constexpr Transition::Call kUnloadStopped{DspOp::kUnload, "unload model "};
inline constexpr Transition::Call kStart{DspOp::kStart};
inline constexpr Transition::Call kRestart{DspOp::kStart, "stop detection "};
inline constexpr Transition::Call kStopPlain{DspOp::kStop};
inline constexpr Transition::Call kStop{DspOp::kStop, "stop detection "};
inline constexpr Transition::Call kInternal{DspOp::kInternal};

inline const Transition kRows[6][6] = {
        {{kUnloaded}, {kLoaded, {kLoad}}, {}, {}, {}, {kForced, {kStart, kInternal}}},
        {{kUnloaded, {kUnload}},
         {kLoaded},
         {kDetecting, {kStart}},
         {},
         {},
         {kForced, {kStart, kInternal}}},
        {{kUnloaded, {kStop, kUnloadStopped}},
         {kLoaded, {kStopPlain}},
         {kDetecting},
         {kCallback},
         {},
         {kForced, {kInternal}}},
        {{kUnloaded, {kStop, kUnloadStopped}},
         {kLoaded, {kStop}},
         {kDetecting, {kRestart}},
         {},
         {kBuffering},
         {}},
        {{kUnloaded, {kStop, kUnloadStopped}},
         {kLoaded, {kStop}},
         {kDetecting, {kRestart}},
         {},
         {},
         {}},
        {{kUnloaded, {kStop, kUnloadStopped}}, {kLoaded, {kStop}}, {kForced}, {}, {kBuffering}, {}},
};

}  // namespace client_table

/** What a client of `engine` does with a request in a state. */
inline const Transition& TransitionOf(int state, Request request, int engine) {
    static const Transition kRefusal;
    // Only the hotword engine is ever run without a detection.
    if (request == Request::kForce && engine != kHotwordEngine) return kRefusal;
    return client_table::kRows[state][static_cast<int>(request)];
}

/** The engine that a client's calls then go to: the internal recognition is the hotword's. */
inline int EngineOf(int state, int engine) {
    return state == client_table::kForced ? kHotwordEngine : engine;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
