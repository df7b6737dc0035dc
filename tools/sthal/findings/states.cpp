#include "tools/sthal/findings/states.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "host/virtual_dsp/dsp/command_table.h"

namespace sthal {

namespace {

using virtual_dsp::Action;
using virtual_dsp::Engine;
using virtual_dsp::JournalEntry;

constexpr char kIdle[] = "idle";

// Collects spans while the states change.
class Spans {
  public:
    // An empty state ends the subject's latest one.
    void Change(const std::string& subject, std::string_view state, int64_t ns) {
        const auto current = current_.find(subject);
        if (current != current_.end()) {
            StateSpan& span = spans_[current->second];
            if (span.state == state) return;
            span.end_ns = ns;
            current_.erase(current);
        }
        if (state.empty()) return;
        current_[subject] = spans_.size();
        spans_.push_back({subject, std::string(state), ns, 0});
    }

    std::vector<StateSpan> Take(int64_t end_ns) {
        for (const auto& [subject, index] : current_) spans_[index].end_ns = end_ns;
        std::erase_if(spans_, [](const StateSpan& span) { return span.end_ns <= span.begin_ns; });
        std::ranges::stable_sort(spans_, {}, &StateSpan::subject);
        return std::move(spans_);
    }

  private:
    std::vector<StateSpan> spans_;
    std::map<std::string, size_t> current_;  // The index of each subject's latest span.
};

std::string EngineSubject(Engine engine) {
    return "engine " + Name(engine);
}

// Follows the DSP and its engines through its journal.
class DspFollower {
  public:
    DspFollower(Spans& spans, int64_t start_ns) : spans_(spans) {
        spans_.Change("DSP", "up", start_ns);
        for (const Engine engine : virtual_dsp::kEngines) {
            spans_.Change(EngineSubject(engine), kIdle, start_ns);
        }
    }

    void Follow(const JournalEntry& entry) {
        if (entry.source == "life") return FollowLife(entry);
        if (entry.source == "command" && entry.result == 0) return FollowCommand(entry);
        if (entry.source != "detector") return;
        for (const Engine engine : virtual_dsp::kEngines) {
            if (!entry.text.starts_with(Name(engine) + " detected")) continue;
            spans_.Change(EngineSubject(engine), "detected", entry.boottime_ns);
        }
    }

  private:
    void FollowLife(const JournalEntry& entry) {
        const bool is_up = entry.text == "boot";
        spans_.Change("DSP", is_up ? "up" : "down", entry.boottime_ns);
        if (is_up) return;
        loaded_.clear();
        for (const Engine engine : virtual_dsp::kEngines) {
            spans_.Change(EngineSubject(engine), kIdle, entry.boottime_ns);
        }
    }

    void FollowCommand(const JournalEntry& entry) {
        const auto* const info = virtual_dsp::FindCommand(entry.command_id.value_or(0));
        if (info == nullptr) return;
        const std::string subject = EngineSubject(info->engine);
        const int64_t ns = entry.boottime_ns;
        switch (info->action) {
            case Action::kLoadModel:
                loaded_.insert(info->engine);
                spans_.Change(subject, "loaded", ns);
                break;
            case Action::kUnloadModel:
                loaded_.erase(info->engine);
                spans_.Change(subject, kIdle, ns);
                break;
            case Action::kStart:
                spans_.Change(subject, loaded_.contains(info->engine) ? "detecting" : "armed", ns);
                break;
            case Action::kStop:
                spans_.Change(subject, loaded_.contains(info->engine) ? "loaded" : kIdle, ns);
                break;
            case Action::kInternalRecognition:
                spans_.Change(subject, "internal recognition", ns);
                break;
            default:
                break;
        }
    }

    Spans& spans_;
    std::set<Engine> loaded_;
};

// The word of `text` behind `before`; empty when that is not in it.
std::string WordAfter(std::string_view text, std::string_view before) {
    const size_t at = text.find(before);
    if (at == std::string_view::npos) return {};
    text.remove_prefix(at + before.size());
    return std::string(text.substr(0, text.find(' ')));
}

// Follows the HAL's clients, and the sound card as the HAL knows it, through the HAL's log.
class HalFollower {
  public:
    explicit HalFollower(Spans& spans) : spans_(spans) {}

    void Follow(const RecordedLogLine& line) {
        const std::string_view text = line.text;
        if (text.starts_with("ChangeStateTo: client ")) {
            const std::string client = "client " + WordAfter(text, "ChangeStateTo: client ");
            clients_.insert(client);
            spans_.Change(client, WordAfter(text, " to "), line.ns);
        } else if (text.starts_with("OnSoundCardStateChanged: ")) {
            const bool is_online = text.ends_with("true");
            spans_.Change("sound card report", is_online ? "online" : "offline", line.ns);
            if (is_online) return;
            // The HAL says no word of it, client by client.
            for (const std::string& client : clients_) {
                spans_.Change(client, "ModelUnloaded", line.ns);
            }
        } else if (text.starts_with("UnloadSoundModel: Unload model with handle ")) {
            End(WordAfter(text, " with handle "), line.ns);
        } else if (text.starts_with("StopInternalForce: Unload internal client with ")) {
            End(WordAfter(text, " client with "), line.ns);
        }
    }

  private:
    void End(const std::string& handle, int64_t ns) {
        spans_.Change("client " + handle, "", ns);
        clients_.erase("client " + handle);
    }

    Spans& spans_;
    std::set<std::string> clients_;
};

}  // namespace

std::vector<StateSpan> StateSpans(const RunFacts& facts) {
    Spans spans;
    DspFollower dsp(spans, facts.start_ns);
    for (const JournalEntry& entry : facts.journal) dsp.Follow(entry);
    HalFollower hal(spans);
    for (const RecordedLogLine& line : facts.log) hal.Follow(line);
    return spans.Take(facts.end_ns);
}

std::string_view StateAt(const std::vector<StateSpan>& spans, std::string_view subject,
                         int64_t ns) {
    for (const StateSpan& span : spans) {
        if (span.subject == subject && span.begin_ns <= ns && ns < span.end_ns) return span.state;
    }
    return {};
}

}  // namespace sthal
