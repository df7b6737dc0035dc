#include "tools/sthal/findings/missed.h"

#include <algorithm>
#include <set>
#include <utility>

namespace sthal {

namespace {

using virtual_dsp::Engine;
using virtual_dsp::JournalEntry;
using Why = MissReason::Kind;

// One spoken hotword with the facts around it.
struct Case {
    const RunFacts& facts;
    std::span<const StateSpan> states;
    const Model& model;
    double correlation = 0;
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
    std::set<int> handles{};  // Of all models with this pattern, at that time.
    // What is known of its detection; null when there was none.
    const DetectionTrail* trail = nullptr;

    std::optional<State> StateOf(const Subject& subject) const {
        return StateAt(states, subject, end_ns);
    }
    // The HAL refused the model and all others with this pattern.
    bool WasRefused() const {
        return std::ranges::none_of(facts.models, [&](const Model& other) {
            return other.handle != 0 && IsSamePattern(model, other);
        });
    }
};

// A reason, if it is the one.
using Answer = std::optional<MissReason>;
using Question = Answer (*)(const Case& one);

Answer FirstAnswer(std::span<const Question> questions, const Case& one) {
    for (const Question question : questions) {
        if (Answer answer = question(one)) return answer;
    }
    return std::nullopt;
}

// The load that the HAL answered with this model; null when it is not known.
const Call* LoadOf(const RunFacts& facts, const Model& model) {
    const Call* load = nullptr;
    for (const Call& call : facts.calls) {
        if (call.end_ns > model.ns) break;
        const bool is_load = call.operation == Operation::kLoadSoundModel ||
                             call.operation == Operation::kLoadPhraseSoundModel;
        if (is_load && call.name == model.name) load = &call;
    }
    return load;
}

// The DSP refuses a model that was made for another engine than the one it is loaded into.
Answer AskOtherEngine(const Case& one) {
    if (!one.WasRefused()) return std::nullopt;
    const Call* const load = LoadOf(one.facts, one.model);
    if (load == nullptr) return std::nullopt;
    for (const JournalEntry& entry : one.facts.journal) {
        if (entry.boottime_ns < load->begin_ns) continue;
        if (entry.boottime_ns > load->end_ns) break;
        const auto* const answered = entry.As<virtual_dsp::CommandAnswered>();
        if (answered == nullptr || answered->status == 0) continue;
        if (answered->cause != virtual_dsp::AnswerCause::kModelOfOtherEngine) continue;
        return MissReason{.kind = Why::kLoadedIntoOtherEngine, .refusal = entry};
    }
    return std::nullopt;
}

Answer AskOffline(const Case& one) {
    if (one.StateOf(Subject::Dsp()) == State(DspState::kDown)) return MissReason{Why::kDspDown};
    const auto report = one.StateOf(Subject::SoundCardReport());
    if (report == State(SoundCardState::kOnline)) return std::nullopt;
    return MissReason{report ? Why::kReportedOffline : Why::kNeverReportedOnline};
}

Answer AskInternalRecognition(const Case& one) {
    if (one.model.engine != Engine::kHotword) return std::nullopt;
    const bool is_client = std::ranges::any_of(one.states, [&](const StateSpan& span) {
        return span.state == State(ClientState::kInternalForceDetected) && span.Covers(one.end_ns);
    });
    const bool is_stream = std::ranges::any_of(one.facts.streams, [&](const Stream& stream) {
        return stream.is_internal && stream.opened_ns != 0 && stream.opened_ns <= one.end_ns &&
               (stream.closed_ns == 0 || one.end_ns < stream.closed_ns);
    });
    if (!is_client && !is_stream) return std::nullopt;
    return MissReason{Why::kInternalRecognition};
}

Answer AskStarted(const Case& one) {
    const Call* const latest = LatestStartOrEnd(one.facts, one.handles, one.end_ns);
    MissReason reason{.kind = Why::kNotStarted, .was_model_refused = one.WasRefused()};
    if (latest != nullptr) {
        if (latest->operation == Operation::kStartRecognition) return std::nullopt;
        reason.ended_by = latest->operation;
    }
    for (const Call& call : one.facts.calls) {
        const bool is_start = call.operation == Operation::kStartRecognition &&
                              one.handles.contains(call.handle) && call.begin_ns < one.end_ns;
        if (is_start && call.result.value_or(0) != 0) reason.failed_starts.push_back(*call.result);
    }
    return reason;
}

// The engine's latest word before the hotword's end.
Answer AskListening(const Case& one) {
    const StateSpan* const span = SpanAt(one.states, Subject::Of(one.model.engine), one.end_ns);
    const EngineState* const state =
            span == nullptr ? nullptr : std::get_if<EngineState>(&span->state);
    if (state == nullptr) return MissReason{Why::kEngineNotDetecting};
    if (*state == EngineState::kDetected) return MissReason{Why::kDetectedAlready};
    if (*state != EngineState::kDetecting) {
        return MissReason{.kind = Why::kEngineNotDetecting, .engine_state = *state};
    }
    if (span->begin_ns > one.begin_ns) return MissReason{Why::kStartedTooLate};
    return std::nullopt;
}

Answer AskThreshold(const Case& one) {
    return MissReason{one.correlation < one.model.threshold ? Why::kBelowThreshold
                                                            : Why::kNotDetected};
}

// What comes first explains what comes after it: nothing is detected by a DSP that is down,
// whatever was started.
constexpr Question kWhyUndetected[] = {AskOtherEngine, AskOffline,   AskInternalRecognition,
                                       AskStarted,     AskListening, AskThreshold};

// All that the HAL makes of a record, it makes of it at once.
constexpr int64_t kAtOnceNs = 500'000'000;

// The first line of the HAL's log within kAtOnceNs that states a fact of this kind.
template <typename Kind>
const LogLine* LineAfter(const RunFacts& facts, int64_t ns) {
    const auto first = std::ranges::lower_bound(facts.hal, ns, {}, &HalFact::ns);
    for (auto fact = first; fact != facts.hal.end() && fact->ns <= ns + kAtOnceNs; ++fact) {
        if (fact->As<Kind>() != nullptr) return &facts.log[fact->line];
    }
    return nullptr;
}

Answer AskDropped(const Case& one) {
    if (!one.trail->dropped_by) return std::nullopt;
    return MissReason{.kind = Why::kRecordDropped, .dropped_by = *one.trail->dropped_by};
}

Answer AskReadFailed(const Case& one) {
    const auto* const line =
            LineAfter<RecordReadFailed>(one.facts, one.trail->At(LatencyStep::kReadable));
    if (line == nullptr) return std::nullopt;
    return MissReason{.kind = Why::kReadFailed, .logged = line->text};
}

Answer AskRead(const Case& one) {
    if (one.trail->At(LatencyStep::kRead) != 0) return std::nullopt;
    if (Answer offline = AskOffline(one)) return offline;
    return MissReason{Why::kNeverRead};
}

Answer AskRefusedTransition(const Case& one) {
    const auto* const line = LineAfter<EventRefused>(one.facts, one.trail->At(LatencyStep::kRead));
    if (line == nullptr) return std::nullopt;
    return MissReason{.kind = Why::kTransitionRefused, .logged = line->text};
}

// Whether models were started, and all of them are of other engines.
Answer AskOthersStarted(const Case& one) {
    size_t started = 0;
    for (const auto& [handle, model] : HoldersAt(one.facts, one.end_ns)) {
        const Call* const latest = LatestStartOrEnd(one.facts, {handle}, one.end_ns);
        if (latest == nullptr || latest->operation != Operation::kStartRecognition) continue;
        if (model->engine == one.model.engine) return std::nullopt;
        ++started;
    }
    if (started == 0) return std::nullopt;
    return MissReason{Why::kOnlyOtherEnginesStarted};
}

Answer SayNoClient(const Case&) {
    return MissReason{Why::kNoClient};
}

// Whether the HAL found a client that the record is for.
Answer AskClaimed(const Case& one) {
    const int64_t read_ns = one.trail->At(LatencyStep::kRead);
    if (LineAfter<RecordClaimed>(one.facts, read_ns) != nullptr)
        return MissReason{Why::kTakenNotDelivered};
    constexpr Question kWhyUnclaimed[] = {AskInternalRecognition, AskOthersStarted, AskStarted,
                                          SayNoClient};
    return FirstAnswer(kWhyUnclaimed, one);
}

constexpr Question kWhyUndelivered[] = {AskDropped, AskReadFailed, AskRead, AskRefusedTransition,
                                        AskClaimed};

// How far the DSP may place the end of a hotword from where it is.
constexpr uint64_t kFrameTolerance = audio::kSampleRateHz / 10;

const DetectionTrail* FindTrail(std::span<const DetectionTrail> trails, const Case& one,
                                uint64_t last_frame) {
    const auto trail = std::ranges::find_if(trails, [&](const DetectionTrail& other) {
        const virtual_dsp::DetectionRaised& raised = other.raised;
        const uint64_t off =
                std::max(raised.frame, last_frame) - std::min(raised.frame, last_frame);
        return raised.origin == virtual_dsp::DetectionRaised::Origin::kHeard &&
               raised.engine == one.model.engine && off <= kFrameTolerance &&
               (other.handle == 0 || one.handles.contains(other.handle));
    });
    return trail == trails.end() ? nullptr : &*trail;
}

}  // namespace

std::vector<MissedHotword> ExplainMissed(const RunFacts& facts, std::span<const StateSpan> states,
                                         std::span<const DetectionTrail> trails,
                                         std::span<const SpokenHotword> spoken) {
    std::vector<MissedHotword> all;
    for (const SpokenHotword& hotword : spoken) {
        const PlayedRecording& played = facts.recordings[hotword.recording];
        const size_t last = hotword.range.end - 1;
        Case one{.facts = facts,
                 .states = states,
                 .model = facts.models[hotword.model],
                 .correlation = hotword.correlation,
                 .begin_ns = played.heard.At(hotword.range.begin),
                 .end_ns = played.heard.At(last)};
        if (one.end_ns == 0) continue;
        one.handles = HandlesAt(facts, one.model, one.end_ns);
        one.trail = FindTrail(trails, one, played.first_frame + last);
        if (one.trail != nullptr && one.trail->handle != 0) continue;
        const Answer reason = one.trail == nullptr ? FirstAnswer(kWhyUndetected, one)
                                                   : FirstAnswer(kWhyUndelivered, one);
        if (reason) all.push_back({hotword, one.end_ns, *reason});
    }
    return all;
}

}  // namespace sthal
