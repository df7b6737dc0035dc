#include "tools/sthal/findings/run_findings.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace sthal {

namespace {

using virtual_dsp::FaultHit;
using virtual_dsp::JournalEntry;

constexpr size_t kMostProblems = 250;

// Whether the verdict tells of it already. Each service has a control thread and numbers of its
// own.
bool IsOfVerdict(const RunFacts& facts, const framework::Violation& violation) {
    if (!facts.verdict.broken) return false;
    const framework::Violation& decided = facts.verdict.broken->violation;
    return decided.rule == violation.rule && decided.event.number == violation.event.number &&
           decided.event.thread == violation.event.thread;
}

std::vector<Problem> SilentCaptures(const RunFacts& facts) {
    std::vector<Problem> problems;
    for (size_t i = 0; i < facts.streams.size(); ++i) {
        problem::SilentCapture capture{.stream = i};
        for (const Read& read : facts.streams[i].reads) {
            if (read.result > 0) ++capture.reads;
            if (!read.is_silent) continue;
            if (capture.silent_reads++ == 0) capture.first_silent_ns = read.end_ns;
        }
        if (capture.silent_reads != 0) problems.push_back(capture);
    }
    return problems;
}

void AddFailures(const RunFacts& facts, std::vector<Problem>* problems) {
    for (size_t i = 0; i < facts.calls.size(); ++i) {
        if (facts.calls[i].result.value_or(0) != 0) problems->push_back(problem::CallFailed{i});
    }
    for (size_t i = 0; i < facts.streams.size(); ++i) {
        if (facts.streams[i].refusal != StreamRefusal::kNone) {
            problems->push_back(problem::StreamRefused{i});
        }
    }
    for (size_t i = 0; i < facts.log.size(); ++i) {
        if (facts.log[i].severity >= android::base::ERROR) {
            problems->push_back(problem::ErrorLogged{i});
        }
    }
    for (size_t i = 0; i < facts.journal.size(); ++i) {
        if (IsRefusal(facts.journal[i])) problems->push_back(problem::DspRefused{i});
    }
    if (facts.left_out != 0) problems->push_back(problem::RecordTooLong{facts.left_out});
}

}  // namespace

RunFindings::RunFindings(const RunFacts& facts)
    : states(StateSpans(facts)),
      trails(DetectionTrails(facts)),
      spoken(FindSpoken(facts)),
      missed(ExplainMissed(facts, states, trails, spoken)) {}

ProblemsAndNotes Problems(const RunFacts& facts, const RunFindings& found) {
    ProblemsAndNotes all;
    auto& [problems, notes] = all;
    for (size_t i = 0; i < facts.broken_rules.size(); ++i) {
        const framework::Violation& violation = facts.broken_rules[i].violation;
        if (IsOfVerdict(facts, violation)) continue;
        (IsNoteOnly(violation) ? notes : problems).push_back(problem::RuleBroken{i});
    }
    const Grade grade = GradeOf(facts.verdict.kind);
    // A run that went as it was meant to missed nothing that was meant to come.
    auto& meant = grade == Grade::kGood ? notes : problems;
    for (size_t i = 0; i < found.missed.size(); ++i) meant.push_back(problem::NoEvent{i});
    std::ranges::copy(SilentCaptures(facts), std::back_inserter(meant));
    AddFailures(facts, &problems);
    // Where failures are listed, the reader has to know of the faults first.
    auto& beside = problems.empty() ? meant : problems;
    if (const auto faults = FaultsSetIn(facts)) beside.insert(beside.begin(), *faults);
    if (grade == Grade::kBad) problems.insert(problems.begin(), problem::BadVerdict{});
    if (problems.size() > kMostProblems) {
        const size_t more = problems.size() - kMostProblems;
        problems.resize(kMostProblems);
        problems.push_back(problem::More{more});
    }
    return all;
}

std::optional<problem::FaultsSet> FaultsSetIn(const RunFacts& facts) {
    problem::FaultsSet faults;
    for (const JournalEntry& entry : facts.journal) {
        const auto* const hit = entry.As<FaultHit>();
        if (hit == nullptr) continue;
        ++faults.hits;
        // Of a rule that hits again and again, the journal tells of the first hits only.
        if (hit->is_last_reported) faults.is_at_least = true;
    }
    if (faults.hits == 0) return std::nullopt;
    return faults;
}

}  // namespace sthal
