#include "tools/sthal/findings/verdict.h"

#include <utility>

namespace sthal {

namespace {

Verdict::Kind KindOf(const RunOutcome& outcome) {
    if (outcome.verbs == VerbsEnd::kInterrupted) return Verdict::Kind::kInterrupted;
    if (outcome.verbs == VerbsEnd::kFailed || outcome.broken) return Verdict::Kind::kFailed;
    return outcome.verbs == VerbsEnd::kNothingSpoken ? Verdict::Kind::kNothingSpoken
                                                     : Verdict::Kind::kHeld;
}

}  // namespace

Verdict VerdictOn(RunOutcome outcome) {
    Verdict verdict{.kind = KindOf(outcome),
                    .subject = std::move(outcome.subject),
                    .failure = std::move(outcome.failure),
                    .delivery = outcome.delivery};
    // A run that ended before has its reason already.
    const bool is_done =
            outcome.verbs == VerbsEnd::kDone || outcome.verbs == VerbsEnd::kNothingSpoken;
    if (is_done) verdict.broken = std::move(outcome.broken);
    return verdict;
}

int ExitStatus(const Verdict& verdict, bool are_files_written) {
    constexpr int kFailed = 1;
    constexpr int kNothingSpoken = 3;
    constexpr int kInterrupted = 130;
    if (verdict.kind == Verdict::Kind::kInterrupted) return kInterrupted;
    if (!are_files_written) return kFailed;
    if (verdict.kind == Verdict::Kind::kNothingSpoken) return kNothingSpoken;
    const bool is_well =
            verdict.kind == Verdict::Kind::kHeld || verdict.kind == Verdict::Kind::kEnded;
    return is_well ? 0 : kFailed;
}

Grade GradeOf(Verdict::Kind kind) {
    switch (kind) {
        case Verdict::Kind::kHeld:
        case Verdict::Kind::kNothingSpoken:
            return Grade::kGood;
        case Verdict::Kind::kNone:
        case Verdict::Kind::kFailed:
            return Grade::kBad;
        case Verdict::Kind::kEnded:
        case Verdict::Kind::kInterrupted:
            return Grade::kUnjudged;
    }
    return Grade::kUnjudged;
}

}  // namespace sthal
