#include "tools/sthal/findings/states.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "host/virtual_dsp/dsp/command_table.h"

namespace sthal {

namespace {

using virtual_dsp::Action;
using virtual_dsp::Engine;
using virtual_dsp::JournalEntry;

// Collects spans while the states change.
class Spans {
  public:
    // No state ends the subject's latest one.
    void Change(const Subject& subject, std::optional<State> state, int64_t ns) {
        const auto current = current_.find(subject);
        if (current != current_.end()) {
            StateSpan& span = spans_[current->second];
            if (span.state == state) return;
            span.end_ns = ns;
            current_.erase(current);
        }
        if (!state) return;
        current_[subject] = spans_.size();
        spans_.push_back({subject, *state, ns, 0});
    }

    std::vector<StateSpan> Take(int64_t end_ns) {
        for (const auto& [subject, index] : current_) spans_[index].end_ns = end_ns;
        std::erase_if(spans_, [](const StateSpan& span) { return span.end_ns <= span.begin_ns; });
        std::ranges::stable_sort(spans_, std::less{}, &StateSpan::subject);
        return std::move(spans_);
    }

  private:
    std::vector<StateSpan> spans_;
    std::map<Subject, size_t> current_;  // The index of each subject's latest span.
};

// Follows the DSP and its engines through its journal.
class DspFollower {
  public:
    DspFollower(Spans& spans, int64_t start_ns) : spans_(spans) { Power(true, start_ns); }

    void Follow(const JournalEntry& entry) {
        const int64_t ns = entry.boottime_ns;
        if (const auto* power = entry.As<virtual_dsp::PowerChanged>()) {
            Power(power->is_up, ns);
        } else if (const auto* raised = entry.As<virtual_dsp::DetectionRaised>()) {
            spans_.Change(Subject::Of(raised->engine), EngineState::kDetected, ns);
        } else if (const auto* answered = entry.As<virtual_dsp::CommandAnswered>()) {
            const auto* const info = virtual_dsp::FindCommand(answered->id.value_or(0));
            if (answered->status == 0 && info != nullptr) FollowCommand(*info, ns);
        }
    }

  private:
    void Power(bool is_up, int64_t ns) {
        spans_.Change(Subject::Dsp(), is_up ? DspState::kUp : DspState::kDown, ns);
        loaded_.clear();
        for (const Engine engine : virtual_dsp::kEngines) {
            spans_.Change(Subject::Of(engine), EngineState::kIdle, ns);
        }
    }

    void FollowCommand(const virtual_dsp::CommandInfo& info, int64_t ns) {
        using enum EngineState;
        const bool is_loaded = loaded_.contains(info.engine);
        const auto change = [&](EngineState state) {
            spans_.Change(Subject::Of(info.engine), state, ns);
        };
        switch (info.action) {
            case Action::kLoadModel:
                loaded_.insert(info.engine);
                return change(kLoaded);
            case Action::kUnloadModel:
                loaded_.erase(info.engine);
                return change(kIdle);
            case Action::kStart:
                return change(is_loaded ? kDetecting : kArmed);
            case Action::kStop:
                return change(is_loaded ? kLoaded : kIdle);
            case Action::kInternalRecognition:
                return change(kInternalRecognition);
            default:
                break;
        }
    }

    Spans& spans_;
    std::set<Engine> loaded_;
};

// Follows the HAL's clients, and the sound card as the HAL knows it, through the HAL's log.
class HalFollower {
  public:
    explicit HalFollower(Spans& spans) : spans_(spans) {}

    void Follow(const HalFact& fact) {
        if (const auto* change = fact.As<ClientChanged>()) {
            clients_.insert(change->handle);
            spans_.Change(Subject::Client(change->handle), change->to, fact.ns);
        } else if (const auto* removed = fact.As<ClientRemoved>()) {
            clients_.erase(removed->handle);
            spans_.Change(Subject::Client(removed->handle), std::nullopt, fact.ns);
        } else if (const auto* report = fact.As<SoundCardReported>()) {
            spans_.Change(Subject::SoundCardReport(),
                          report->online ? SoundCardState::kOnline : SoundCardState::kOffline,
                          fact.ns);
            if (report->online) return;
            // The HAL says no word of it, client by client.
            for (const int handle : clients_) {
                spans_.Change(Subject::Client(handle), ClientState::kModelUnloaded, fact.ns);
            }
        }
    }

  private:
    Spans& spans_;
    std::set<int> clients_;
};

}  // namespace

const char* Name(DspState state) {
    return state == DspState::kUp ? "up" : "down";
}

const char* Name(SoundCardState state) {
    return state == SoundCardState::kOnline ? "online" : "offline";
}

const char* Name(EngineState state) {
    switch (state) {
        case EngineState::kIdle:
            return "idle";
        case EngineState::kLoaded:
            return "loaded";
        case EngineState::kArmed:
            return "armed";
        case EngineState::kDetecting:
            return "detecting";
        case EngineState::kDetected:
            return "detected";
        case EngineState::kInternalRecognition:
            return "internal recognition";
    }
    return "";
}

const char* Name(const State& state) {
    return std::visit([](auto one) { return Name(one); }, state);
}

std::string Name(const Subject& subject) {
    switch (subject.kind) {
        case Subject::Kind::kDsp:
            return "DSP";
        case Subject::Kind::kClient:
            return "client " + std::to_string(subject.number);
        case Subject::Kind::kEngine:
            return "engine " + Name(static_cast<Engine>(subject.number));
        case Subject::Kind::kSoundCardReport:
            return "sound card report";
    }
    return "";
}

std::vector<StateSpan> StateSpans(const RunFacts& facts) {
    Spans spans;
    DspFollower dsp(spans, facts.start_ns);
    for (const JournalEntry& entry : facts.journal) dsp.Follow(entry);
    HalFollower hal(spans);
    for (const HalFact& fact : facts.hal) hal.Follow(fact);
    return spans.Take(facts.end_ns);
}

const StateSpan* SpanAt(std::span<const StateSpan> spans, const Subject& subject, int64_t ns) {
    const auto span = std::ranges::find_if(
            spans, [&](const StateSpan& one) { return one.subject == subject && one.Covers(ns); });
    return span == spans.end() ? nullptr : &*span;
}

std::optional<State> StateAt(std::span<const StateSpan> spans, const Subject& subject, int64_t ns) {
    const StateSpan* const span = SpanAt(spans, subject, ns);
    return span == nullptr ? std::nullopt : std::optional(span->state);
}

}  // namespace sthal
