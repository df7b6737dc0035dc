#include "tools/sthal/findings/verdict.h"

#include <gtest/gtest.h>

namespace sthal {
namespace {

// Every verb did what it was to do, and the framework would have restarted the HAL all the same.
TEST(Verdict, ABrokenRuleFailsARunThatElseWentWell) {
    for (const VerbsEnd verbs : {VerbsEnd::kDone, VerbsEnd::kNothingSpoken}) {
        const Verdict verdict = VerdictOn({.verbs = verbs, .broken = BrokenRule{}});
        EXPECT_EQ(Verdict::Kind::kFailed, verdict.kind);
        EXPECT_TRUE(verdict.broken) << "the reason would be missing from the last line";
        EXPECT_EQ(1, ExitStatus(verdict, true));
    }
}

TEST(Verdict, AFailedVerbIsTheReasonAndNotARuleBrokenBesideIt) {
    const Verdict verdict = VerdictOn({.verbs = VerbsEnd::kFailed,
                                       .failure = Failure{.expected = "an event"},
                                       .broken = BrokenRule{}});

    EXPECT_EQ(Verdict::Kind::kFailed, verdict.kind);
    EXPECT_TRUE(verdict.failure);
    EXPECT_FALSE(verdict.broken);
}

TEST(Verdict, ExitStatusTellsEndingsApart) {
    const auto status = [](VerbsEnd verbs, bool are_files_written) {
        return ExitStatus(VerdictOn({.verbs = verbs}), are_files_written);
    };
    EXPECT_EQ(0, status(VerbsEnd::kDone, true));
    EXPECT_EQ(1, status(VerbsEnd::kDone, false));
    EXPECT_EQ(1, status(VerbsEnd::kFailed, true));
    EXPECT_EQ(3, status(VerbsEnd::kNothingSpoken, true));
    EXPECT_EQ(1, status(VerbsEnd::kNothingSpoken, false)) << "its report is missing";
    EXPECT_EQ(130, status(VerbsEnd::kInterrupted, false)) << "the wish of the user comes first";
    EXPECT_EQ(0, ExitStatus({.kind = Verdict::Kind::kEnded}, true)) << "a shell that was left";
}

}  // namespace
}  // namespace sthal
