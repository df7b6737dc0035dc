#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/report/written_run.h"
#include "tools/sthal/findings/recording_marks.h"
#include "tools/sthal/output/finding_texts.h"

namespace sthal {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(LatencyBreakdown, FollowsADetectionToTheFirstReadThatLeavesLessThanOneMore) {
    WrittenRun run;
    run.Start();
    run.Deliver();
    run.Open(1900);
    run.Open(2017, /*io_handle=*/99);
    run.Open(2018);
    run.facts.streams[2].reads = {
            {.end_ns = 2018 * kMs, .result = -5},
            {.end_ns = 2019 * kMs, .result = 4096, .is_silent = true},
            {.end_ns = 2020 * kMs, .result = 4096, .left = {.hotword_frames = 1024}},
            {.end_ns = 2021 * kMs, .result = 4096, .left = {.hotword_frames = 1023}}};

    const auto trails = DetectionTrails(run.facts);

    ASSERT_THAT(trails, SizeIs(1));
    EXPECT_THAT(trails[0].times, ElementsAre(2000 * kMs, 2010 * kMs, 2012 * kMs, 2015 * kMs,
                                             2018 * kMs, 2020 * kMs, 2021 * kMs));
    EXPECT_EQ(2U, trails[0].stream) << "the stream of that io handle, opened after the event";
}

TEST(LatencyBreakdown, TheNextDetectionsEventIsNotCountedForAnEarlierOne) {
    WrittenRun run;
    run.Start();
    run.Detect(600, 9000);
    run.Journal(601, virtual_dsp::RecordTaken{});
    run.Deliver();

    const auto trails = DetectionTrails(run.facts);

    ASSERT_THAT(trails, SizeIs(2));
    EXPECT_EQ(0, trails[0].At(LatencyStep::kCallback));
    EXPECT_EQ(2015 * kMs, trails[1].At(LatencyStep::kCallback));
}

TEST(LatencyBreakdown, PercentilesAreValuesThatWereSeen) {
    std::vector<DetectionTrail> trails(100);
    for (int64_t i = 0; i < 100; ++i) {
        DetectionTrail& trail = trails[static_cast<size_t>(i)];
        trail.At(LatencyStep::kReadable) = 1000;
        trail.At(LatencyStep::kCallback) = 1000 + 100 - i;  // The read in between is not known.
    }

    const auto statistics = Statistics(trails);

    ASSERT_THAT(statistics, SizeIs(1));
    EXPECT_EQ(LatencyStep::kCallback, statistics[0].step);
    EXPECT_EQ(50, statistics[0].p50_ns);
    EXPECT_EQ(90, statistics[0].p90_ns);
    EXPECT_EQ(99, statistics[0].p99_ns);
    EXPECT_EQ(100, statistics[0].max_ns);
    using enum LatencyStep;
    EXPECT_EQ(90, StatisticsBetween(trails, kReadable, kCallback)->p90_ns);
    EXPECT_FALSE(StatisticsBetween(trails, kHotwordEnd, kCallback));
}

std::vector<std::string> Texts(const std::vector<Problem>& problems, const RunFacts& facts) {
    std::vector<std::string> texts;
    texts.reserve(problems.size());
    for (const Problem& one : problems) texts.push_back(ToText(one, facts, RunFindings(facts)));
    return texts;
}

TEST(RecordingMarks, SilenceIsNotTakenForCapturedAudio) {
    WrittenRun run;
    run.Start();
    run.Deliver();
    run.Open(2018);
    for (const int64_t n : {1, 2, 3, 4}) {
        run.facts.streams[0].reads.push_back({.end_ns = (2018 + n) * kMs,
                                              .result = 4096,
                                              .is_silent = n >= 3,
                                              .position = n * 1024});
    }
    const RunFindings found(run.facts);

    const auto marks = MarksOf(run.facts, found, 0);

    // Captured from the microphone's frame 9000; the recording begins with its frame 1000.
    ASSERT_THAT(marks, SizeIs(3));
    EXPECT_EQ(RecordingMark::Kind::kCaptured, marks[1].kind);
    EXPECT_EQ(8000U, marks[1].range.begin);
    EXPECT_EQ(10048U, marks[1].range.end);
    EXPECT_EQ(RecordingMark::Kind::kSilent, marks[2].kind);
    EXPECT_EQ(12096U, marks[2].range.end);
    EXPECT_EQ("silence instead of audio", LabelOf(marks[2], run.facts));
    EXPECT_THAT(Texts(Problems(run.facts, found).problems, run.facts),
                Contains(HasSubstr("in 2 of its 4 reads, first at 2.021 s")));
}

TEST(RecordingMarks, OfALongRunThatWithAMissedHotwordAndTheEndAreShown) {
    WrittenRun run;
    run.facts.recordings.resize(40, run.facts.recordings[0]);
    RunFindings found(run.facts);
    found.missed.push_back({.spoken = {.recording = 19}});

    EXPECT_THAT(RecordingsToShow(run.facts, found, 4), ElementsAre(19, 37, 38, 39));
}

TEST(Problems, BeginWithABadVerdictAndSayNothingTwice) {
    using framework::Rule;
    RunFacts facts;
    for (const Rule rule :
         {Rule::kNotStarted, Rule::kSecondEvent, Rule::kSecondEventAfterDspRestart}) {
        facts.broken_rules.push_back({.ns = 1, .violation = {.rule = rule, .event = {}}});
    }
    facts.verdict.kind = Verdict::Kind::kFailed;
    facts.verdict.broken = {.violation = facts.broken_rules[1].violation};
    const RunFindings found(facts);

    const auto [problems, notes] = Problems(facts, found);

    EXPECT_THAT(Texts(problems, facts),
                ElementsAre(HasSubstr("a second event without a new start"),
                            HasSubstr("an event for a model that is not started")));
    EXPECT_THAT(notes, SizeIs(1)) << "Android's framework does not mind";
    facts.broken_rules.clear();
    facts.verdict = {};
    EXPECT_THAT(Texts(Problems(facts, found).problems, facts),
                ElementsAre(HasSubstr("did not come to a verdict")));
    facts.verdict.kind = Verdict::Kind::kHeld;
    EXPECT_THAT(Problems(facts, found).problems, IsEmpty());
}

TEST(Problems, FaultsThatTheRunSetAreToldFirstAndAreNoneOfAGoodRun) {
    WrittenRun run;
    run.Journal(100, virtual_dsp::FaultHit{.rule = "on model_data write errno=EIO", .count = 1});
    run.Call(110, Operation::kLoadSoundModel, -5);
    run.facts.verdict.kind = Verdict::Kind::kEnded;
    const RunFindings found(run.facts);

    EXPECT_THAT(Texts(Problems(run.facts, found).problems, run.facts),
                ElementsAre(HasSubstr("1 call was hit by faults"),
                            "loadSoundModel at 0.110 s returned -5: \"\", 0 bytes"));
    run.facts.calls.clear();
    run.facts.verdict.kind = Verdict::Kind::kHeld;
    EXPECT_THAT(Problems(run.facts, found).problems, IsEmpty()) << "all went as it was meant to";
    EXPECT_THAT(Problems(run.facts, found).notes, SizeIs(1));
}

}  // namespace
}  // namespace sthal
