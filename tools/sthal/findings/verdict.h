#pragma once

#include <optional>
#include <string>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

// How the verbs of a run, or one of them, ended.
enum class VerbsEnd { kDone, kFailed, kInterrupted, kNothingSpoken };

// What the verdict on a run depends on.
struct RunOutcome {
    VerbsEnd verbs = VerbsEnd::kDone;
    std::string subject{};               // The scenario's file.
    std::optional<Failure> failure{};    // Of the verb that failed, unless the delivery tells.
    std::optional<Delivery> delivery{};  // As it was judged, if it was.
    std::optional<BrokenRule> broken{};  // The first one that is no note only.
};

/**
 * The verdict on a run, by the first of these that is so:
 *
 *     the run was interrupted                             kInterrupted
 *     a verb was not carried out, or an expectation
 *     (also that of a delivery) did not hold              kFailed: `failure` or `delivery`
 *     the HAL broke a rule for which Android's framework
 *     would restart it, although every verb is done       kFailed: `broken`
 *     there was no hotword to hear, and no event came     kNothingSpoken
 *     none of it                                          kHeld
 */
Verdict VerdictOn(RunOutcome outcome);

// Of the command that made the run: 130 kInterrupted; 1 a file of the run could not be written; 0
// kHeld or kEnded; 3 kNothingSpoken; 1 all else.
int ExitStatus(const Verdict& verdict, bool are_files_written);

enum class Grade { kGood, kBad, kUnjudged };
Grade GradeOf(Verdict::Kind kind);

}  // namespace sthal
