#include "tools/sthal/findings/spoken.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include "tools/audio/find.h"

namespace sthal {

namespace {

using virtual_dsp::Engine;

// Below this nothing is taken for the model's pattern, whatever threshold the model has. Music
// resembles itself.
double LeastCorrelation(const Model& model) {
    return model.engine == Engine::kHotword ? 0.5 : std::max(0.5, model.threshold - 0.05);
}

bool Overlap(const audio::FrameRange& a, const audio::FrameRange& b) {
    return a.begin < b.end && b.begin < a.end;
}

// The frames of a range in one channel, as far as it has them.
audio::Sound Piece(const audio::Sound& mono, const audio::FrameRange& range) {
    const auto at = [&](size_t frame) {
        return mono.samples.begin() + static_cast<ptrdiff_t>(std::min(frame, mono.frames()));
    };
    return {.channels = 1, .samples = {at(range.begin), at(range.end)}};
}

std::vector<audio::Match> FindIn(const PlayedRecording& played, const audio::Sound& pattern,
                                 double least) {
    std::vector<audio::Match> matches = audio::FindMatches(*played.recording, pattern, least);
    if (played.said == nullptr) return matches;
    // What was said too quietly is not found in the recording, but where it was put there.
    for (audio::Match match : audio::FindMatches(*played.said, pattern, least)) {
        match.range.begin += played.said_at;
        match.range.end += played.said_at;
        const bool is_known = std::ranges::any_of(
                matches, [&](const auto& other) { return Overlap(other.range, match.range); });
        if (is_known) continue;
        const audio::Sound heard = Piece(played.recording->Channel(0), match.range);
        match.correlation = audio::FindTemplate(heard, pattern).correlation;
        matches.push_back(match);
    }
    return matches;
}

int64_t HeardAt(const RunFacts& facts, const SpokenHotword& spoken) {
    return facts.recordings[spoken.recording].heard.At(spoken.range.end - 1);
}

// Whether a model with this pattern was there by the time that it was heard.
bool WasModelKnown(const RunFacts& facts, const SpokenHotword& spoken) {
    const int64_t ns = HeardAt(facts, spoken);
    return std::ranges::any_of(facts.models, [&](const Model& model) {
        return IsSamePattern(model, facts.models[spoken.model]) && (ns == 0 || model.ns <= ns);
    });
}

// Of several models that correlate with one and the same speech, the one that it was meant for: a
// started one before others, then the one that correlates most. A model of later is not meant at
// all.
std::vector<SpokenHotword> OnePerSpeech(const RunFacts& facts, std::vector<SpokenHotword> spoken) {
    const auto rank = [&](const SpokenHotword& one) {
        const int64_t ns = HeardAt(facts, one);
        const Call* const latest =
                LatestStartOrEnd(facts, HandlesAt(facts, facts.models[one.model], ns), ns);
        const bool is_started =
                latest != nullptr && latest->operation == Operation::kStartRecognition;
        return std::pair(is_started, one.correlation);
    };
    std::ranges::stable_sort(spoken, std::greater{}, rank);
    std::vector<SpokenHotword> kept;
    for (const SpokenHotword& one : spoken) {
        const bool is_told = std::ranges::any_of(kept, [&](const SpokenHotword& other) {
            return other.recording == one.recording && Overlap(other.range, one.range);
        });
        if (!is_told && WasModelKnown(facts, one)) kept.push_back(one);
    }
    std::ranges::sort(kept, {}, [](const SpokenHotword& one) {
        return std::pair(one.recording, one.range.begin);
    });
    return kept;
}

// What the patterns of all models, each of them once, match in a recording.
std::vector<SpokenHotword> Search(const RunFacts& facts, size_t recording) {
    std::vector<SpokenHotword> spoken;
    for (size_t m = 0; m < facts.models.size(); ++m) {
        const Model& model = facts.models[m];
        const auto first = std::ranges::find_if(
                facts.models, [&](const Model& other) { return IsSamePattern(model, other); });
        if (model.pattern.empty() || &*first != &model) continue;
        const audio::Sound pattern{.channels = 1, .samples = model.pattern};
        for (const audio::Match& match :
             FindIn(facts.recordings[recording], pattern, LeastCorrelation(model))) {
            spoken.push_back({recording, m, match.range, match.correlation});
        }
    }
    return spoken;
}

}  // namespace

std::vector<SpokenHotword> FindSpoken(const RunFacts& facts) {
    std::vector<SpokenHotword> spoken;
    // What is played over and over is searched once.
    std::map<const audio::Sound*, std::vector<SpokenHotword>> searched;
    for (size_t i = 0; i < facts.recordings.size(); ++i) {
        const auto [found, is_new] = searched.try_emplace(facts.recordings[i].recording.get());
        if (is_new) found->second = Search(facts, i);
        for (SpokenHotword one : found->second) {
            one.recording = i;
            spoken.push_back(one);
        }
    }
    return OnePerSpeech(facts, std::move(spoken));
}

bool IsSamePattern(const Model& a, const Model& b) {
    return a.engine == b.engine && a.pattern == b.pattern;
}

std::map<int, const Model*> HoldersAt(const RunFacts& facts, int64_t ns) {
    std::map<int, const Model*> holders;
    for (const Model& model : facts.models) {
        if (model.handle != 0 && model.ns <= ns) holders[model.handle] = &model;
    }
    return holders;
}

std::set<int> HandlesAt(const RunFacts& facts, const Model& pattern, int64_t ns) {
    std::set<int> handles;
    for (const auto& [handle, model] : HoldersAt(facts, ns)) {
        if (IsSamePattern(pattern, *model)) handles.insert(handle);
    }
    return handles;
}

const Call* LatestStartOrEnd(const RunFacts& facts, const std::set<int>& handles, int64_t ns) {
    const Call* latest = nullptr;
    for (const Call& call : facts.calls) {
        if (call.end_ns > ns) break;
        const bool counts = call.operation == Operation::kStartRecognition ||
                            call.operation == Operation::kStopRecognition ||
                            call.operation == Operation::kUnloadSoundModel;
        if (counts && call.result == 0 && handles.contains(call.handle)) latest = &call;
    }
    return latest;
}

}  // namespace sthal
