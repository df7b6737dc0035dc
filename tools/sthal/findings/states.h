#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

enum class DspState { kDown, kUp };
// What the HAL has been told of the sound card.
enum class SoundCardState { kOffline, kOnline };
enum class EngineState {
    kIdle,
    kLoaded,
    kArmed,  // Started without a model.
    kDetecting,
    kDetected,
    kInternalRecognition,
};
using State = std::variant<DspState, SoundCardState, EngineState, ClientState>;

const char* Name(DspState state);
const char* Name(SoundCardState state);
const char* Name(EngineState state);
// "down", "online", "detecting", "StartDetecting".
const char* Name(const State& state);

// What has a state. The order is that of a drawing.
struct Subject {
    enum class Kind { kDsp, kClient, kEngine, kSoundCardReport };
    Kind kind = Kind::kDsp;
    int number = 0;  // A client's handle, or virtual_dsp::Engine.

    static constexpr Subject Dsp() { return {}; }
    static constexpr Subject SoundCardReport() { return {Kind::kSoundCardReport}; }
    static constexpr Subject Client(int handle) { return {Kind::kClient, handle}; }
    static constexpr Subject Of(virtual_dsp::Engine engine) {
        return {Kind::kEngine, static_cast<int>(engine)};
    }
    bool operator==(const Subject&) const = default;
    bool operator<(const Subject& other) const {
        return std::pair(kind, number) < std::pair(other.kind, other.number);
    }
};

// "DSP", "client 1", "engine hotword", "sound card report".
std::string Name(const Subject& subject);

// Something that was in one state for a time.
struct StateSpan {
    Subject subject{};
    State state{};
    int64_t begin_ns = 0;
    int64_t end_ns = 0;

    bool Covers(int64_t ns) const { return begin_ns <= ns && ns < end_ns; }
};

/**
 * What was in which state when: the DSP and its engines by the DSP's journal, the sound card as the
 * HAL was told of it and the HAL's clients by the HAL's log. Grouped by subject, then in the order
 * of time.
 */
std::vector<StateSpan> StateSpans(const RunFacts& facts);

// The span of a subject at a time; null when it had no state.
const StateSpan* SpanAt(std::span<const StateSpan> spans, const Subject& subject, int64_t ns);

// The state of a subject at a time; none when it had none.
std::optional<State> StateAt(std::span<const StateSpan> spans, const Subject& subject, int64_t ns);

}  // namespace sthal
