#include "tools/sthal/findings/findings.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <utility>

namespace sthal {

namespace {

using virtual_dsp::JournalEntry;

constexpr size_t kMostProblems = 250;
// Of one capture that goes back and forth between audio and silence.
constexpr size_t kListedStretches = 6;

std::string Number(size_t number) {
    return std::to_string(number);
}

std::vector<std::string> MissedTexts(const RunFacts& facts, const RunFindings& found) {
    std::vector<std::string> texts;
    for (const MissedHotword& missed : found.missed) {
        texts.push_back("No event came of \"" + facts.models[missed.spoken.model].name +
                        "\" in recording " + Number(missed.spoken.playback + 1) + ", heard until " +
                        RunTime(facts, missed.heard_ns) + ". " + missed.why);
    }
    return texts;
}

std::vector<std::string> SilenceTexts(const RunFacts& facts) {
    std::vector<std::string> texts;
    for (const RecordedStream& stream : facts.streams) {
        const auto first = std::ranges::find_if(stream.reads, &RecordedRead::is_silent);
        if (first == stream.reads.end()) continue;
        const auto silent = std::ranges::count_if(stream.reads, &RecordedRead::is_silent);
        const auto all = std::ranges::count_if(stream.reads,
                                               [](const auto& read) { return read.result > 0; });
        const std::string capture = "The capture opened at " + RunTime(facts, stream.opened_ns);
        texts.push_back(silent == all ? capture + " got no audio: all its samples are 0"
                                      : capture + " got silence (all samples 0) in " +
                                                std::to_string(silent) + " of its " +
                                                std::to_string(all) + " reads, first at " +
                                                RunTime(facts, first->end_ns));
    }
    return texts;
}

// Empty without faults.
std::string FaultText(const RunFacts& facts) {
    const auto hits = std::ranges::count(facts.journal, "fault", &JournalEntry::source);
    if (hits == 0) return {};
    // Of a rule that hits again and again, the journal tells of the first hits only.
    const bool are_all = std::ranges::none_of(facts.journal, [](const JournalEntry& entry) {
        return entry.source == "fault" && entry.text.ends_with(kNextHitsNotTold);
    });
    return (are_all ? "" : "At least ") + std::to_string(hits) +
           (hits == 1 ? " call was" : " calls were") +
           " hit by faults that the run set on purpose; failures and errors may come of them";
}

void AddFailures(const RunFacts& facts, std::vector<std::string>* problems) {
    for (const RecordedCall& call : facts.calls) {
        if (call.result.value_or(0) == 0) continue;
        problems->push_back(call.name + " at " + RunTime(facts, call.begin_ns) + " returned " +
                            std::to_string(*call.result) + ": " + call.detail);
    }
    for (const RecordedStream& stream : facts.streams) {
        if (stream.error.empty()) continue;
        problems->push_back("No stream was opened at " + RunTime(facts, stream.begin_ns) + ": " +
                            stream.error);
    }
    for (const RecordedLogLine& line : facts.log) {
        if (line.severity < android::base::ERROR) continue;
        problems->push_back("The HAL logged at " + RunTime(facts, line.ns) + ": " + line.text);
    }
    for (const JournalEntry& entry : facts.journal) {
        if (entry.result == 0 || entry.source == "fault") continue;
        problems->push_back("The DSP refused at " + RunTime(facts, entry.boottime_ns) + ": " +
                            entry.text);
    }
    if (facts.left_out != 0) {
        problems->push_back("The run was too long for its record: " + Number(facts.left_out) +
                            " facts are missing here");
    }
}

// The verdict comes first, and takes the place of a problem that says the same.
void PutVerdictFirst(const RunFacts& facts, std::vector<std::string>* problems) {
    constexpr std::string_view kFailed = "FAILED: ";
    std::string verdict = VerdictText(facts);
    if (verdict.starts_with(kFailed)) verdict.erase(0, kFailed.size());
    std::erase(*problems, verdict);
    problems->insert(problems->begin(), std::move(verdict));
}

// A mark for each stretch of audio or silence that a stream delivered, from a frame of the
// recording on. `end_of` tells with which frame a read ended.
template <typename EndOf>
void AddStretches(const RecordedStream& stream, size_t begin, EndOf end_of,
                  std::vector<ChartMark>* marks) {
    std::vector<ChartMark> stretches;
    for (const RecordedRead& read : stream.reads) {
        const size_t end = end_of(read);
        if (read.result <= 0 || end <= begin) continue;
        const auto kind = read.is_silent ? ChartMark::Kind::kSilent : ChartMark::Kind::kCaptured;
        if (!stretches.empty() && stretches.back().kind == kind) {
            stretches.back().range.end = end;
        } else {
            const std::string label = read.is_silent ? "silence instead of audio" : "captured";
            stretches.push_back({kind, label, {begin, end}});
        }
        begin = end;
    }
    for (size_t i = 0; i < stretches.size(); ++i) {
        ChartMark& mark = stretches[i];
        if (stream.is_internal) mark.label += ", internal recognition";
        if (i + 1 == kListedStretches && stretches.size() > kListedStretches) {
            mark.label += ", and " + Number(stretches.size() - i - 1) + " more stretches";
        }
        if (i >= kListedStretches) mark.label.clear();
        marks->push_back(std::move(mark));
    }
}

void AddCaptured(const RunFacts& facts, const RecordedPlayback& playback,
                 const Detection& detection, std::vector<ChartMark>* marks) {
    if (!detection.stream) return;
    const auto within = [&](uint64_t microphone_frame) {
        const uint64_t first = playback.first_frame;
        return std::min<size_t>(std::max(microphone_frame, first) - first,
                                playback.recording->frames());
    };
    AddStretches(
            facts.streams[*detection.stream], within(detection.captured_from),
            [&](const RecordedRead& read) {
                return within(detection.captured_from + static_cast<uint64_t>(read.position));
            },
            marks);
}

void AddSpoken(const RunFacts& facts, const RunFindings& found, size_t playback,
               std::vector<ChartMark>* marks) {
    for (const SpokenHotword& spoken : found.spoken) {
        if (spoken.playback != playback) continue;
        const bool is_missed = std::ranges::any_of(found.missed, [&](const auto& missed) {
            return missed.spoken.playback == playback && missed.spoken.model == spoken.model &&
                   missed.spoken.range.begin == spoken.range.begin;
        });
        marks->push_back({is_missed ? ChartMark::Kind::kMissed : ChartMark::Kind::kSpoken,
                          "\"" + facts.models[spoken.model].name + "\"" +
                                  (is_missed ? ", no event" : ", spoken"),
                          spoken.range});
    }
}

}  // namespace

RunFindings::RunFindings(const RunFacts& facts)
    : states(StateSpans(facts)),
      detections(Detections(facts)),
      spoken(FindSpoken(facts)),
      missed(ExplainMissed(facts, spoken)) {}

VerdictKind KindOf(std::string_view verdict) {
    for (const char* good : {"OK", "NO HOTWORD", "NO MUSIC"}) {
        if (verdict.starts_with(good)) return VerdictKind::kGood;
    }
    const bool is_bad = verdict.empty() || verdict.starts_with("FAILED");
    return is_bad ? VerdictKind::kBad : VerdictKind::kUnjudged;
}

std::string VerdictText(const RunFacts& facts) {
    return facts.verdict.empty() ? "The run did not come to a verdict." : facts.verdict;
}

std::string RunTime(const RunFacts& facts, int64_t ns) {
    char text[40];
    (void)std::snprintf(text, sizeof(text), "%.3f s",
                        static_cast<double>(ns - facts.start_ns) / 1e9);
    return text;
}

Told Tell(const RunFacts& facts, const RunFindings& found) {
    Told told{facts.problems, facts.notes};
    const VerdictKind kind = KindOf(facts.verdict);
    // A run that went as it was meant to missed nothing that was meant to come.
    auto& meant = kind == VerdictKind::kGood ? told.notes : told.problems;
    std::ranges::copy(MissedTexts(facts, found), std::back_inserter(meant));
    std::ranges::copy(SilenceTexts(facts), std::back_inserter(meant));
    AddFailures(facts, &told.problems);
    // Where failures are listed, the reader has to know of the faults first.
    auto& beside = told.problems.empty() ? meant : told.problems;
    if (const std::string text = FaultText(facts); !text.empty()) {
        beside.insert(beside.begin(), text);
    }
    if (kind == VerdictKind::kBad) PutVerdictFirst(facts, &told.problems);
    if (told.problems.size() > kMostProblems) {
        const std::string more = Number(told.problems.size() - kMostProblems) + " more";
        told.problems.resize(kMostProblems);
        told.problems.push_back(more);
    }
    return told;
}

std::vector<ChartMark> MarksOf(const RunFacts& facts, const RunFindings& found, size_t index) {
    const RecordedPlayback& playback = facts.playbacks[index];
    std::vector<ChartMark> marks;
    AddSpoken(facts, found, index, &marks);
    for (const Detection& detection : found.detections) {
        const uint64_t end = playback.first_frame + playback.recording->frames();
        if (!detection.frame || *detection.frame < playback.first_frame ||
            *detection.frame >= end) {
            continue;
        }
        const size_t frame = *detection.frame - playback.first_frame;
        const char* const how = detection.kind == Detection::Kind::kHeard    ? " detected"
                                : detection.kind == Detection::Kind::kForced ? " forced"
                                                                             : ", internal";
        marks.push_back({ChartMark::Kind::kDetected, Name(detection.engine) + how, {frame, frame}});
        AddCaptured(facts, playback, detection, &marks);
    }
    for (const RecordedStream& stream : facts.streams) {
        if (!stream.is_internal || playback.heard_ns.empty()) continue;
        AddStretches(
                stream, playback.FrameAt(stream.opened_ns),
                [&](const RecordedRead& read) { return playback.FrameAt(read.end_ns); }, &marks);
    }
    return marks;
}

std::vector<size_t> PlaybacksToShow(const RunFacts& facts, const RunFindings& found, size_t most) {
    std::set<size_t> shown;
    const size_t count = facts.playbacks.size();
    if (count != 0) shown.insert(count - 1);
    for (const MissedHotword& missed : found.missed) {
        if (shown.size() < most) shown.insert(missed.spoken.playback);
    }
    for (size_t i = count; i > 0 && shown.size() < most; --i) shown.insert(i - 1);
    return {shown.begin(), shown.end()};
}

}  // namespace sthal
