#pragma once

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/missed.h"
#include "tools/sthal/findings/spoken.h"
#include "tools/sthal/findings/states.h"
#include "tools/sthal/findings/verdict.h"

namespace sthal {

// What has been found out of the facts of a run.
struct RunFindings {
    explicit RunFindings(const RunFacts& facts);

    std::vector<StateSpan> states;
    std::vector<DetectionTrail> trails;
    std::vector<SpokenHotword> spoken;
    std::vector<MissedHotword> missed;
};

// What was wrong with a run, or is worth knowing of it. Facts are named by their index.
namespace problem {

struct BadVerdict {};
struct RuleBroken {
    size_t rule = 0;  // Of RunFacts::broken_rules.
};
struct NoEvent {
    size_t missed = 0;  // Of RunFindings::missed.
};
// A capture in which all samples of some reads are 0.
struct SilentCapture {
    size_t stream = 0;        // Of RunFacts::streams.
    size_t silent_reads = 0;  // Of `reads`.
    size_t reads = 0;         // That delivered something.
    int64_t first_silent_ns = 0;
};
// Calls on device nodes that were hit by faults which the run set on purpose.
struct FaultsSet {
    size_t hits = 0;
    bool is_at_least = false;  // The journal does not tell of all of them.
};
struct CallFailed {
    size_t call = 0;  // Of RunFacts::calls.
};
struct StreamRefused {
    size_t stream = 0;  // Of RunFacts::streams.
};
struct ErrorLogged {
    size_t line = 0;  // Of RunFacts::log.
};
struct DspRefused {
    size_t entry = 0;  // Of RunFacts::journal.
};
struct RecordTooLong {
    size_t left_out = 0;  // Facts.
};
struct More {
    size_t count = 0;  // Problems beyond those that are listed.
};

}  // namespace problem

using Problem = std::variant<problem::BadVerdict, problem::RuleBroken, problem::NoEvent,
                             problem::SilentCapture, problem::FaultsSet, problem::CallFailed,
                             problem::StreamRefused, problem::ErrorLogged, problem::DspRefused,
                             problem::RecordTooLong, problem::More>;

struct ProblemsAndNotes {
    std::vector<Problem> problems;
    std::vector<Problem> notes;  // Not wrong.
};

/**
 * What was wrong with a run, in this order: a bad verdict; faults that were set on purpose; broken
 * rules but for the verdict's; hotwords of which no event came; silent captures; failed calls;
 * refused streams; ERROR lines; what the DSP refused; facts that the record has not kept. At most
 * 250, then how many more.
 *
 * Some of it is a note instead. Missed hotwords and silent captures are notes if the verdict is
 * good. Faults are notes if nothing else was wrong. A broken rule for which no framework restarts
 * the HAL is always a note.
 */
ProblemsAndNotes Problems(const RunFacts& facts, const RunFindings& found);

// The calls that the run's own faults hit; none where there were no such calls.
std::optional<problem::FaultsSet> FaultsSetIn(const RunFacts& facts);

}  // namespace sthal
