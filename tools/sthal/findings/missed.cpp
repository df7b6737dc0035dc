#include "tools/sthal/findings/missed.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <set>

#include "tools/audio/find.h"
#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/states.h"

namespace sthal {

namespace {

using virtual_dsp::Engine;
using virtual_dsp::JournalEntry;

// A recording is searched in pieces, so that one with many hotwords is not searched as a whole for
// each of them.
constexpr size_t kPieceFrames = size_t{20} * audio::kSampleRateHz;

// Below this nothing is taken for the model's pattern, whatever threshold the model has. Music
// resembles itself.
double LeastLikeness(const RecordedModel& model) {
    return model.engine == Engine::kHotword ? 0.5 : std::max(0.5, model.threshold - 0.05);
}

// How far the DSP may place the end of a hotword from where it is.
constexpr uint64_t kFrameTolerance = audio::kSampleRateHz / 10;

bool IsSamePattern(const RecordedModel& a, const RecordedModel& b) {
    return a.engine == b.engine && a.pattern == b.pattern;
}

void FindInPiece(audio::Sound piece, size_t offset, const audio::Sound& pattern, double least,
                 std::vector<audio::Match>* matches) {
    while (true) {
        audio::Match match = audio::FindTemplate(piece, pattern);
        if (match.correlation < least) return;
        const auto begin = piece.samples.begin() + static_cast<ptrdiff_t>(match.range.begin);
        std::fill_n(begin, match.range.end - match.range.begin, int16_t{0});
        match.range.begin += offset;
        match.range.end += offset;
        const bool is_known = std::ranges::any_of(*matches, [&](const audio::Match& other) {
            return match.range.begin < other.range.end && other.range.begin < match.range.end;
        });
        if (!is_known) matches->push_back(match);
    }
}

// What was said too quietly is not found in the recording, but where it was put there.
void FindSaid(const RecordedPlayback& playback, const audio::Sound& mono,
              const audio::Sound& pattern, double least, std::vector<audio::Match>* matches) {
    if (playback.said == nullptr) return;
    const size_t found = matches->size();
    FindInPiece(playback.said->Channel(0), playback.said_at, pattern, least, matches);
    for (size_t i = found; i < matches->size(); ++i) {
        audio::Match& match = (*matches)[i];
        audio::Sound heard;
        for (size_t at = match.range.begin; at < std::min(match.range.end, mono.frames()); ++at) {
            heard.samples.push_back(mono.samples[at]);
        }
        match.correlation = audio::FindTemplate(heard, pattern).correlation;
    }
}

// The handles that models of this pattern have at a time. A handle that was freed goes to the next
// model, whatever that one is for.
std::set<int> HandlesAt(const RunFacts& facts, const RecordedModel& pattern, int64_t ns) {
    std::map<int, const RecordedModel*> holders;
    for (const RecordedModel& model : facts.models) {
        if (model.handle != 0 && model.ns <= ns) holders[model.handle] = &model;
    }
    std::set<int> handles;
    for (const auto& [handle, model] : holders) {
        if (IsSamePattern(pattern, *model)) handles.insert(handle);
    }
    return handles;
}

// The latest call of the framework, before a time, that started or ended recognition of one of
// them.
const RecordedCall* LatestStartOrEnd(const RunFacts& facts, const std::set<int>& handles,
                                     int64_t ns) {
    const RecordedCall* latest = nullptr;
    for (const RecordedCall& call : facts.calls) {
        if (call.end_ns > ns) break;
        const bool counts = call.kind == RecordedCall::Kind::kStart ||
                            call.kind == RecordedCall::Kind::kStop ||
                            call.kind == RecordedCall::Kind::kUnload;
        if (counts && call.result == 0 && handles.contains(call.handle)) latest = &call;
    }
    return latest;
}

bool IsStarted(const RunFacts& facts, const std::set<int>& handles, int64_t ns) {
    const RecordedCall* const latest = LatestStartOrEnd(facts, handles, ns);
    return latest != nullptr && latest->kind == RecordedCall::Kind::kStart;
}

// The facts around one spoken hotword, and the questions that they answer.
class Inquiry {
  public:
    Inquiry(const RunFacts& facts, const std::vector<StateSpan>& states,
            const std::vector<Detection>& detections, const SpokenHotword& spoken)
        : facts_(facts),
          states_(states),
          detections_(detections),
          model_(facts.models[spoken.model]),
          likeness_(spoken.likeness) {
        const RecordedPlayback& playback = facts.playbacks[spoken.playback];
        begin_ns_ = playback.HeardAt(spoken.range.begin);
        end_ns_ = playback.HeardAt(spoken.range.end - 1);
        last_frame_ = playback.first_frame + spoken.range.end - 1;
        handles_ = HandlesAt(facts, model_, end_ns_);
        is_refused_ = std::ranges::none_of(facts.models, [&](const RecordedModel& other) {
            return other.handle != 0 && IsSamePattern(model_, other);
        });
    }

    int64_t heard_ns() const { return end_ns_; }

    // None: an event came.
    std::optional<MissedHotword> Explain() {
        const Detection* const detection = FindDetection();
        if (detection != nullptr && detection->handle != 0) return std::nullopt;
        MissedHotword missed;
        missed.heard_ns = end_ns_;
        if (detection != nullptr) {
            ExplainUndelivered(*detection, &missed);
        } else {
            ExplainUndetected(&missed);
        }
        return missed;
    }

  private:
    static void Say(MissedHotword* missed, MissReason reason, std::string why) {
        missed->reason = reason;
        missed->why = std::move(why);
    }

    const Detection* FindDetection() const {
        for (const Detection& detection : detections_) {
            if (detection.kind != Detection::Kind::kHeard || !detection.frame ||
                detection.engine != model_.engine) {
                continue;
            }
            if (detection.handle != 0 && !handles_.contains(detection.handle)) continue;
            const uint64_t frame = *detection.frame;
            const uint64_t off = frame > last_frame_ ? frame - last_frame_ : last_frame_ - frame;
            if (off <= kFrameTolerance) return &detection;
        }
        return nullptr;
    }

    std::string_view StateOf(const std::string& subject) const {
        return StateAt(states_, subject, end_ns_);
    }

    bool IsDspOffline(MissedHotword* missed) const {
        if (StateOf("DSP") == "down") {
            Say(missed, MissReason::kDspOffline, "The DSP was down.");
            return true;
        }
        const std::string_view told = StateOf("sound card report");
        if (told == "online") return false;
        Say(missed, MissReason::kDspOffline,
            told == "offline" ? "The HAL had been told that the DSP is offline."
                              : "The HAL had not been told yet that the DSP is online.");
        return true;
    }

    bool IsInternal(MissedHotword* missed) const {
        if (model_.engine != Engine::kHotword) return false;
        const bool is_client = std::ranges::any_of(states_, [&](const StateSpan& span) {
            return span.state == "InternalForceDetected" && span.begin_ns <= end_ns_ &&
                   end_ns_ < span.end_ns;
        });
        const bool is_stream = std::ranges::any_of(facts_.streams, [&](const auto& stream) {
            return stream.is_internal && stream.opened_ns != 0 && stream.opened_ns <= end_ns_ &&
                   (stream.closed_ns == 0 || end_ns_ < stream.closed_ns);
        });
        if (!is_client && !is_stream) return false;
        Say(missed, MissReason::kInternalRecognition,
            "An internal recognition was running: what the engine detects belongs to it.");
        return true;
    }

    bool IsNotStarted(MissedHotword* missed) const {
        const RecordedCall* const latest = LatestStartOrEnd(facts_, handles_, end_ns_);
        if (latest != nullptr && latest->kind == RecordedCall::Kind::kStart) return false;
        std::string why = "Recognition of \"" + model_.name + "\" was not started";
        why += latest == nullptr ? "." : ": " + latest->name + " had ended it.";
        for (const RecordedCall& call : facts_.calls) {
            const bool failed = call.result.value_or(0) != 0 && call.begin_ns < end_ns_;
            const bool is_start =
                    call.kind == RecordedCall::Kind::kStart && handles_.contains(call.handle);
            if (failed && is_start) why += " A start had failed with " + Number(*call.result) + ".";
        }
        if (is_refused_) why += " The HAL had refused the model.";
        Say(missed, MissReason::kNotStarted, why);
        return true;
    }

    // The DSP refuses a model that was made for another engine than the one it is loaded into.
    bool IsForAnotherEngine(MissedHotword* missed) const {
        if (!is_refused_) return false;
        for (const JournalEntry& entry : facts_.journal) {
            if (entry.result == 0 || entry.boottime_ns > end_ns_) continue;
            if (entry.text.find("made for engine") == std::string::npos) continue;
            Say(missed, MissReason::kEngineMismatch,
                "The model is for the " + Name(model_.engine) +
                        " engine and was loaded into another one: " + entry.text + ".");
            return true;
        }
        return false;
    }

    // What the engine's latest word before the hotword was.
    bool IsNotListening(MissedHotword* missed) const {
        const std::string subject = "engine " + Name(model_.engine);
        const std::string_view state = StateOf(subject);
        if (state == "detected") {
            Say(missed, MissReason::kNotStartedAgain,
                "The engine had detected already, and detects once after each start.");
            return true;
        }
        if (state != "detecting") {
            Say(missed, MissReason::kNotStarted,
                "The HAL counted the model as started, the DSP's engine was " + std::string(state) +
                        ".");
            return true;
        }
        const RecordedCall* const start = LatestStartOrEnd(facts_, handles_, end_ns_);
        int64_t listening_ns = start->end_ns;
        for (const StateSpan& span : states_) {
            if (span.subject == subject && span.begin_ns <= end_ns_) listening_ns = span.begin_ns;
        }
        if (listening_ns <= begin_ns_) return false;
        Say(missed, MissReason::kStartedTooLate,
            "The DSP began to listen in the middle of it: what was heard before does not count.");
        return true;
    }

    void ExplainUndetected(MissedHotword* missed) const {
        if (IsForAnotherEngine(missed) || IsDspOffline(missed) || IsInternal(missed) ||
            IsNotStarted(missed) || IsNotListening(missed)) {
            return;
        }
        char text[120];
        (void)std::snprintf(text, sizeof(text), "likeness %.4g, threshold %.4g", likeness_,
                            model_.threshold);
        if (likeness_ < model_.threshold) {
            return Say(missed, MissReason::kBelowThreshold,
                       std::string("Below the model's threshold: ") + text + ".");
        }
        Say(missed, MissReason::kUnknown,
            std::string("The DSP was listening and detected nothing: ") + text + ".");
    }

    const RecordedLogLine* LogLine(std::string_view beginning, int64_t from_ns,
                                   int64_t to_ns) const {
        const auto first = std::ranges::lower_bound(facts_.log, from_ns, {}, &RecordedLogLine::ns);
        for (auto line = first; line != facts_.log.end() && line->ns <= to_ns; ++line) {
            if (line->text.starts_with(beginning)) return &*line;
        }
        return nullptr;
    }

    void ExplainUndelivered(const Detection& detection, MissedHotword* missed) const {
        // All that the HAL makes of a record, it makes of it at once.
        constexpr int64_t kAtOnceNs = 500'000'000;
        const int64_t from_ns = detection.At(Step::kReadable);
        if (!detection.dropped_by.empty()) {
            return Say(missed, MissReason::kRecordDropped,
                       "The DSP detected it, but its record was dropped by " +
                               detection.dropped_by + " before the HAL read it.");
        }
        if (const auto* line = LogLine("ControlThreadLoop: read trigger event failure", from_ns,
                                       from_ns + kAtOnceNs)) {
            return Say(missed, MissReason::kReadFailed, "The HAL logged: " + line->text + ".");
        }
        const int64_t read_ns = detection.At(Step::kRead);
        if (read_ns == 0) {
            if (IsDspOffline(missed)) return;
            return Say(missed, MissReason::kUnknown, "The HAL never read the DSP's record.");
        }
        const int64_t to_ns = read_ns + kAtOnceNs;
        if (const auto* line = LogLine("ControlThreadLoop: requested CallbackProcessing failure",
                                       read_ns, to_ns)) {
            return Say(missed, MissReason::kRefusedTransition,
                       "The client's state refused it; the HAL logged: " + line->text + ".");
        }
        const auto* taken = LogLine("ControlThreadLoop: received ", read_ns, to_ns);
        if (taken == nullptr) return ExplainUnclaimed(missed);
        Say(missed, MissReason::kStoppedMeanwhile,
            "The HAL took the record, but did not deliver the event: its model was stopped or "
            "unloaded at that moment, or has no callback.");
    }

    // The HAL read the record and found no client that it is for.
    void ExplainUnclaimed(MissedHotword* missed) const {
        if (IsInternal(missed)) return;
        const bool is_started = !IsNotStarted(missed);
        if (!is_started && HasOtherEngineStarted()) {
            return Say(missed, MissReason::kEngineMismatch,
                       "The record is the " + Name(model_.engine) +
                               " engine's; only models of other engines were started.");
        }
        if (is_started) {
            Say(missed, MissReason::kUnknown, "The HAL read the record and found no client of it.");
        }
    }

    bool HasOtherEngineStarted() const {
        std::set<int> started;
        for (const RecordedCall& call : facts_.calls) {
            if (call.end_ns > end_ns_ || call.result != 0) continue;
            if (call.kind == RecordedCall::Kind::kStart) started.insert(call.handle);
            if (call.kind == RecordedCall::Kind::kStop || call.kind == RecordedCall::Kind::kUnload)
                started.erase(call.handle);
        }
        return std::ranges::any_of(started, [&](int handle) { return !handles_.contains(handle); });
    }

    static std::string Number(int value) { return std::to_string(value); }

    const RunFacts& facts_;
    const std::vector<StateSpan>& states_;
    const std::vector<Detection>& detections_;
    const RecordedModel& model_;
    const double likeness_;
    int64_t begin_ns_ = 0;
    int64_t end_ns_ = 0;
    uint64_t last_frame_ = 0;
    std::set<int> handles_;  // Of all models with this pattern, at that time.
    bool is_refused_ = false;
};

// Of several models that one and the same speech is like, the one that it was meant for: a started
// one before others, then the one that it is most like. A model of later is not meant at all.
std::vector<SpokenHotword> OnePerSpeech(const RunFacts& facts, std::vector<SpokenHotword> spoken) {
    const auto rank = [&](const SpokenHotword& one) {
        const RecordedPlayback& playback = facts.playbacks[one.playback];
        const int64_t ns = playback.HeardAt(one.range.end - 1);
        const RecordedModel& model = facts.models[one.model];
        return std::pair(IsStarted(facts, HandlesAt(facts, model, ns), ns), one.likeness);
    };
    std::ranges::stable_sort(spoken,
                             [&](const auto& a, const auto& b) { return rank(a) > rank(b); });
    std::vector<SpokenHotword> kept;
    for (const SpokenHotword& one : spoken) {
        const int64_t ns = facts.playbacks[one.playback].HeardAt(one.range.end - 1);
        const bool is_known = std::ranges::any_of(facts.models, [&](const RecordedModel& model) {
            return IsSamePattern(model, facts.models[one.model]) && (ns == 0 || model.ns <= ns);
        });
        const bool is_told = std::ranges::any_of(kept, [&](const SpokenHotword& other) {
            return other.playback == one.playback && one.range.begin < other.range.end &&
                   other.range.begin < one.range.end;
        });
        if (is_known && !is_told) kept.push_back(one);
    }
    std::ranges::sort(kept, [](const auto& a, const auto& b) {
        return std::pair(a.playback, a.range.begin) < std::pair(b.playback, b.range.begin);
    });
    return kept;
}

}  // namespace

std::vector<SpokenHotword> FindSpoken(const RunFacts& facts) {
    std::vector<SpokenHotword> spoken;
    std::map<const audio::Sound*, size_t> searched;  // The first playback of each recording.
    for (size_t p = 0; p < facts.playbacks.size(); ++p) {
        const audio::Sound& recording = *facts.playbacks[p].recording;
        if (const auto [first, is_new] = searched.emplace(&recording, p); !is_new) {
            for (size_t i = 0, known = spoken.size(); i < known; ++i) {
                if (spoken[i].playback != first->second) continue;
                SpokenHotword again = spoken[i];
                again.playback = p;
                spoken.push_back(again);
            }
            continue;
        }
        const audio::Sound mono = recording.Channel(0);
        for (size_t m = 0; m < facts.models.size(); ++m) {
            const RecordedModel& model = facts.models[m];
            const auto same = std::ranges::find_if(
                    facts.models, [&](const auto& other) { return IsSamePattern(model, other); });
            if (model.pattern.empty() || &*same != &model) continue;
            const audio::Sound pattern{.channels = 1, .samples = model.pattern};
            std::vector<audio::Match> matches;
            for (size_t at = 0; at < mono.frames(); at += kPieceFrames) {
                const size_t end = std::min(mono.frames(), at + kPieceFrames + pattern.frames());
                audio::Sound piece;
                piece.samples.assign(mono.samples.begin() + static_cast<ptrdiff_t>(at),
                                     mono.samples.begin() + static_cast<ptrdiff_t>(end));
                FindInPiece(std::move(piece), at, pattern, LeastLikeness(model), &matches);
            }
            FindSaid(facts.playbacks[p], mono, pattern, LeastLikeness(model), &matches);
            for (const audio::Match& match : matches) {
                spoken.push_back({p, m, match.range, match.correlation});
            }
        }
    }
    return OnePerSpeech(facts, std::move(spoken));
}

std::vector<MissedHotword> ExplainMissed(const RunFacts& facts,
                                         const std::vector<SpokenHotword>& spoken) {
    const std::vector<StateSpan> states = StateSpans(facts);
    const std::vector<Detection> detections = Detections(facts);
    std::vector<MissedHotword> all;
    for (const SpokenHotword& one : spoken) {
        Inquiry inquiry(facts, states, detections, one);
        if (inquiry.heard_ns() == 0) continue;
        if (auto missed = inquiry.Explain()) {
            missed->spoken = one;
            all.push_back(std::move(*missed));
        }
    }
    return all;
}

}  // namespace sthal
