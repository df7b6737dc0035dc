#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/report/written_run.h"
#include "tools/sthal/findings/findings.h"
#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/output/markup.h"
#include "tools/sthal/output/page.h"
#include "tools/sthal/output/trace.h"

namespace sthal {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

RecordedStream StreamAt(int64_t opened_ms, int io_handle) {
    return {.io_handle = io_handle, .opened_ns = opened_ms * kMs, .bulk_frames = 1024};
}

TEST(LedgerTest, FollowsADetectionToTheFirstReadThatLeavesLessThanOneMore) {
    WrittenRun run;
    run.Start();
    run.Deliver();
    run.facts.streams = {StreamAt(1900, 13), StreamAt(2017, 99), StreamAt(2018, 13)};
    run.facts.streams[2].reads = {
            {.end_ns = 2018 * kMs, .result = -5},
            {.end_ns = 2019 * kMs, .result = 4096, .is_silent = true},
            {.end_ns = 2020 * kMs, .result = 4096, .left = {.hotword_frames = 1024}},
            {.end_ns = 2021 * kMs, .result = 4096, .left = {.hotword_frames = 1023}}};

    const auto detections = Detections(run.facts);

    ASSERT_THAT(detections, SizeIs(1));
    EXPECT_THAT(detections[0].times, ElementsAre(2000 * kMs, 2010 * kMs, 2012 * kMs, 2015 * kMs,
                                                 2018 * kMs, 2020 * kMs, 2021 * kMs));
    EXPECT_EQ(2U, detections[0].stream) << "the stream of that io handle, opened after the event";
}

TEST(LedgerTest, TheNextDetectionsEventIsNotCountedForAnEarlierOne) {
    WrittenRun run;
    run.Start();
    run.Journal(600, "detector", "hotword detected, score=0.9 frame=9000, captured from frame 1");
    run.Journal(601, "notification", "hotword record taken");
    run.Deliver();

    const auto detections = Detections(run.facts);

    ASSERT_THAT(detections, SizeIs(2));
    EXPECT_EQ(0, detections[0].At(Step::kCallback));
    EXPECT_EQ(2015 * kMs, detections[1].At(Step::kCallback));
}

TEST(LedgerTest, PercentilesAreValuesThatWereSeen) {
    std::vector<Detection> detections(100);
    for (int64_t i = 0; i < 100; ++i) {
        Detection& detection = detections[static_cast<size_t>(i)];
        detection.At(Step::kReadable) = 1000;
        detection.At(Step::kCallback) = 1000 + 100 - i;  // The read in between is not known.
    }

    const auto statistics = Statistics(detections);

    ASSERT_THAT(statistics, SizeIs(1));
    EXPECT_EQ(Step::kCallback, statistics[0].step);
    EXPECT_EQ(50, statistics[0].p50_ns);
    EXPECT_EQ(90, statistics[0].p90_ns);
    EXPECT_EQ(99, statistics[0].p99_ns);
    EXPECT_EQ(100, statistics[0].max_ns);
    EXPECT_EQ(90, StatisticsBetween(detections, Step::kReadable, Step::kCallback)->p90_ns);
    EXPECT_FALSE(StatisticsBetween(detections, Step::kInstant, Step::kCallback));
}

TEST(ReportTest, ALongDownloadIsOneRowOfTheJournalAndItsRefusedPieceAnother) {
    WrittenRun run;
    for (int64_t ms = 100; ms < 1000; ++ms) {
        run.Journal(ms, "model-data", "16384 of 16384 bytes taken");
        run.Command(ms, wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL, ms == 500 ? -5 : 0,
                    "command 260 hotword write model");
    }

    const std::string page = ReportHtml(run.facts);

    EXPECT_THAT(page, HasSubstr("model-data: 401 pieces"));
    EXPECT_THAT(page, HasSubstr("model-data: 499 pieces"));
    EXPECT_THAT(page, HasSubstr("<tr class=\"bad\"><td class=\"n\">0.500 s</td>"));
}

TEST(ReportTest, SilenceIsNotShownAsCapturedAudio) {
    WrittenRun run;
    run.Start();
    run.Deliver();
    run.facts.streams = {StreamAt(2018, 13)};
    for (const int64_t n : {1, 2, 3, 4}) {
        run.facts.streams[0].reads.push_back({.end_ns = (2018 + n) * kMs,
                                              .result = 4096,
                                              .is_silent = n >= 3,
                                              .position = n * 1024});
    }
    using Kind = ChartMark::Kind;

    const auto marks = MarksOf(run.facts, RunFindings(run.facts), 0);

    // Captured from the microphone's frame 9000; the recording begins with its frame 1000.
    ASSERT_THAT(marks, SizeIs(3));
    EXPECT_THAT(marks[1], FieldsAre(Kind::kCaptured, "captured", FieldsAre(8000, 10048)));
    EXPECT_THAT(marks[2], FieldsAre(Kind::kSilent, HasSubstr("silence"), FieldsAre(10048, 12096)));
    EXPECT_THAT(ReportHtml(run.facts), HasSubstr("in 2 of its 4 reads, first at 2.021 s"));
}

TEST(ReportTest, ABadVerdictIsTheFirstThingThatWasWrongAndIsSaidOnceThere) {
    RunFacts facts{.verdict = "FAILED: it broke", .problems = {"another", "it broke"}};
    const RunFindings found(facts);

    EXPECT_THAT(Tell(facts, found).problems, ElementsAre("it broke", "another"));
    facts.problems.clear();
    facts.verdict.clear();
    EXPECT_THAT(Tell(facts, found).problems, ElementsAre(HasSubstr("did not come to a verdict")));
    facts.verdict = "OK: it held";
    EXPECT_THAT(Tell(facts, found).problems, IsEmpty());
}

TEST(ReportTest, OfALongRunItShowsWhatWasMissedAndTheEnd) {
    WrittenRun run;
    run.facts.playbacks.resize(40, run.facts.playbacks[0]);
    for (int64_t ms = 1; ms <= 300; ++ms) run.Journal(ms, "detector", "hotword detected, frame=1");
    RunFindings found(run.facts);
    found.missed.push_back({.spoken = {.playback = 19}});

    EXPECT_THAT(PlaybacksToShow(run.facts, found, 4), ElementsAre(19, 37, 38, 39));
    const std::string page = ReportHtml(run.facts);
    EXPECT_THAT(page, HasSubstr("these are not shown: 1 to 28."));
    EXPECT_THAT(page, HasSubstr("300, hotword"));
}

TEST(ReportTest, FaultsThatTheRunSetAreToldApartFromThePhonesOwn) {
    WrittenRun run;
    run.Journal(100, "fault", "on model_data write errno=EIO: hit a call");
    run.facts.journal.back().command_id = wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL;
    const RunFindings found(run.facts);

    EXPECT_THAT(Tell(run.facts, found).problems, Contains(HasSubstr("1 call was hit by faults")));
    EXPECT_THAT(ReportHtml(run.facts), HasSubstr("<tr class=\"fault\">"));
    EXPECT_THAT(TraceJson(run.facts), HasSubstr("\"faults\""));
    run.facts.verdict = "OK: it held";
    EXPECT_THAT(Tell(run.facts, found).problems, IsEmpty()) << "all went as it was meant to";
    EXPECT_THAT(Tell(run.facts, found).notes, SizeIs(1));
}

TEST(MarkupTest, HostileTextStaysText) {
    EXPECT_EQ("\"a\\\"\\\\\\u000a\xC3\xA9\xEF\xBF\xBD\"", JsonText("a\"\\\n\xC3\xA9\xFF"));
    EXPECT_EQ("&lt;b a=&#39;&quot;&amp;", HtmlText("<b a='\"&"));
    // Overlong, a surrogate, and a sequence that is cut off.
    EXPECT_THAT(JsonText("\xC0\xAF"), Not(HasSubstr("\xC0")));
    EXPECT_THAT(HtmlText("\xED\xA0\x80"), Not(HasSubstr("\xED")));
    EXPECT_EQ("x\xEF\xBF\xBD", HtmlText("x\xE2"));
}

TEST(MarkupTest, NothingFromOutsideGetsIntoThePageAsMarkup) {
    WrittenRun run;
    run.Start();
    run.facts.title = run.facts.models[0].name = "<script>1</script>";
    run.Deliver();
    run.Log(2500, "<script>2</script>");
    run.facts.log.back().severity = android::base::ERROR;
    run.Journal(2600, "<script>", "<script>3</script>");
    run.facts.dumps.push_back({.ns = 1, .text = "<script>4</script>"});

    EXPECT_THAT(ReportHtml(run.facts), Not(HasSubstr("<script")));
}

TEST(TraceTest, OverlappingSlicesGetRowsOfTheirOwn) {
    RunFacts facts;
    for (const int64_t begin : {10, 20}) {
        facts.calls.push_back({.name = "call" + std::to_string(begin),
                               .begin_ns = begin * kMs,
                               .end_ns = (begin + 15) * kMs});
    }

    const std::string trace = TraceJson(facts);

    EXPECT_THAT(trace, HasSubstr("\"framework calls\""));
    EXPECT_THAT(trace, HasSubstr("\"framework calls 2\""));
}

}  // namespace
}  // namespace sthal
