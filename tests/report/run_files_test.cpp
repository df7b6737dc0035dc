#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <regex>
#include <set>

#include "tests/report/written_run.h"
#include "tools/sthal/output/html_template.h"
#include "tools/sthal/output/page.h"
#include "tools/sthal/output/trace.h"

namespace sthal {
namespace {

using nlohmann::json;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(TemplateTest, TextIsEscapedAndEmptyValuesEndSections) {
    const json data = {{"text", "<b a='\"&"}, {"number", 0}, {"list", {"1", "2"}}, {"none", ""}};

    EXPECT_EQ("&lt;b a=&apos;&quot;&amp;", FillTemplate("{{text}}", data));
    EXPECT_EQ("0 12",
              FillTemplate("{{#number}}{{number}}{{/number}} {{#list}}{{.}}{{/list}}", data));
    EXPECT_EQ("none", FillTemplate("{{#none}}some{{/none}}{{^none}}none{{/none}}", data));
}

TEST(TemplateTest, WhatIsNoTextIsReplaced) {
    // A control character, a byte that begins nothing, and a sequence that is cut off.
    EXPECT_EQ("\xEF\xBF\xBD\xC3\xA9\n", FillTemplate("{{text}}", {{"text", "\x01\xC3\xA9\n"}}));
    EXPECT_EQ("x\xEF\xBF\xBDy", FillTemplate("{{text}}", {{"text", "x\xFFy"}}));
    EXPECT_EQ("x\xEF\xBF\xBD", FillTemplate("{{text}}", {{"text", "x\xE2"}}));
    // Overlong, and a surrogate.
    EXPECT_THAT(FillTemplate("{{text}}", {{"text", "\xC0\xAF"}}), Not(HasSubstr("\xC0")));
    EXPECT_THAT(FillTemplate("{{text}}", {{"text", "\xED\xA0\x80"}}), Not(HasSubstr("\xED")));
}

void AddNames(const json& value, std::set<std::string>* names) {
    for (const auto& [name, member] : value.items()) {
        if (value.is_object()) names->insert(name);
        if (member.is_structured()) AddNames(member, names);
    }
}

TEST(ReportTest, TheTemplateUsesAllOfTheDataAndNothingElse) {
    WrittenRun run;
    run.Start();
    run.Deliver();
    run.Detect(2600);
    run.facts.recordings.resize(40, run.facts.recordings[0]);
    for (int64_t ms = 3000; ms <= 3600; ++ms) run.Journal(ms, virtual_dsp::PowerChanged{});
    run.facts.dumps = {{.ns = 1, .text = "before"}, {.ns = 2, .text = "after"}};
    run.facts.steps.push_back({.text = "something was done"});
    RunFindings found(run.facts);
    found.missed.push_back({.spoken = {.recording = 39}});

    std::set<std::string> known = {"date"};
    AddNames(PageData(run.facts, found), &known);
    std::set<std::string> used;
    const std::regex name(R"(\{\{[#^/]?(\w+)\}\})");
    const std::string& page = PageTemplate();
    for (std::sregex_iterator one(page.begin(), page.end(), name), end; one != end; ++one) {
        used.insert((*one)[1]);
    }

    EXPECT_EQ(known, used);
}

TEST(ReportTest, ALongDownloadIsOneRowOfTheJournalAndItsRefusedChunkAnother) {
    WrittenRun run;
    for (int64_t ms = 100; ms < 1000; ++ms) {
        run.Journal(ms, virtual_dsp::ChunkTaken{.offered = 16384, .taken = 16384});
        run.Command(ms, wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL, ms == 500 ? -5 : 0);
    }

    const std::string page = ReportHtml(run.facts);

    EXPECT_THAT(page, HasSubstr("model-data: 401 chunks"));
    EXPECT_THAT(page, HasSubstr("model-data: 499 chunks"));
    EXPECT_THAT(page, HasSubstr("<tr class=\"bad\"><td class=\"n\">0.500 s</td>"));
}

TEST(ReportTest, OfALongRunItShowsTheEnd) {
    WrittenRun run;
    run.facts.recordings.resize(40, run.facts.recordings[0]);
    for (int64_t ms = 1; ms <= 300; ++ms) run.Detect(ms, 1);

    const std::string page = ReportHtml(run.facts);
    EXPECT_THAT(page, HasSubstr("these are not shown: 1 to 28."));
    EXPECT_THAT(page, HasSubstr("300, hotword"));
}

TEST(ReportTest, FaultsThatTheRunSetAreToldApartFromThePhonesOwn) {
    WrittenRun run;
    run.Journal(100, virtual_dsp::FaultHit{.rule = "on model_data write errno=EIO",
                                           .count = 1,
                                           .is_last_reported = true});

    EXPECT_THAT(ReportHtml(run.facts), HasSubstr("<tr class=\"fault\">"));
    EXPECT_THAT(ReportHtml(run.facts), HasSubstr("<dd>at least 1</dd>"));
    EXPECT_THAT(TraceJson(run.facts), HasSubstr("\"faults\""));
}

TEST(ReportTest, OnlyWhatWasHeardCountsAsDetected) {
    using Origin = virtual_dsp::DetectionRaised::Origin;
    WrittenRun run;
    for (const Origin origin : {Origin::kHeard, Origin::kForced, Origin::kInternal}) {
        run.Journal(100, virtual_dsp::DetectionRaised{.origin = origin});
    }

    EXPECT_EQ(1, PageData(run.facts, RunFindings(run.facts))["detected"]);
}

TEST(ReportTest, NothingFromOutsideGetsIntoThePageAsMarkup) {
    WrittenRun run;
    run.Start();
    run.facts.title = run.facts.models[0].name = "<script>1</script>";
    run.Deliver();
    run.Log(2500, "<script>2</script>");
    run.facts.log.back().severity = android::base::ERROR;
    run.Journal(2600, virtual_dsp::FaultHit{.rule = "<script>3</script>"});
    run.facts.dumps.push_back({.ns = 1, .text = "<script>4</script>"});

    EXPECT_THAT(ReportHtml(run.facts), Not(HasSubstr("<script")));
}

json TraceOf(const RunFacts& facts) {
    return json::parse(TraceJson(facts), nullptr, /*allow_exceptions=*/false);
}

TEST(TraceTest, OverlappingSlicesGetRowsOfTheirOwn) {
    WrittenRun run;
    for (const int64_t ms : {10, 20}) {
        run.Call(ms, Operation::kStopRecognition);
        run.facts.calls.back().end_ns = (ms + 15) * kMs;
    }

    const json trace = TraceOf(run.facts);

    std::vector<std::string> lanes;
    for (const json& event : trace["traceEvents"]) {
        if (event["name"] == "thread_name") lanes.push_back(event["args"]["name"]);
    }
    EXPECT_THAT(lanes, Contains("framework calls"));
    EXPECT_THAT(lanes, Contains("framework calls 2"));
}

TEST(TraceTest, HostileTextStaysText) {
    WrittenRun run;
    run.facts.title = "a\"\\\n\xC3\xA9\xFF";

    EXPECT_EQ("a\"\\\n\xC3\xA9\xEF\xBF\xBD", TraceOf(run.facts)["otherData"]["run"]);
}

}  // namespace
}  // namespace sthal
