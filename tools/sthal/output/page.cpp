#include "tools/sthal/output/page.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "tools/sthal/findings/findings.h"
#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/output/charts.h"
#include "tools/sthal/output/markup.h"
#include "tools/sthal/output/page_style.h"
#include "tools/sthal/output/timeline.h"

namespace sthal {

namespace {

using virtual_dsp::JournalEntry;

// Of a long list its beginning and its end are shown.
constexpr size_t kShownAtEachEnd = 250;
constexpr size_t kDetectionsAtEachEnd = 50;
constexpr size_t kShownPlaybacks = 12;

// Of a table: cells that are HTML already.
struct Row {
    int64_t ns = 0;
    std::string kind{};  // A class of the style sheet.
    std::string what{};
    std::string result{};
    std::string took{};
};

class Report {
  public:
    explicit Report(const RunFacts& facts) : facts_(facts), found_(facts) {}

    std::string Write() {
        html_ = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
                "<meta name=\"viewport\" content=\"width=device-width, "
                "initial-scale=1\">\n<title>" +
                HtmlText(facts_.title) + "</title>\n<style>" + kReportStyle +
                "</style></head><body>\n";
        WriteOutcome();
        WriteGlance();
        const Told told = Tell(facts_, found_);
        WriteList("What was wrong", told.problems);
        if (!told.notes.empty()) WriteList("Notes", told.notes);
        WriteSteps();
        WriteRecordings();
        html_ += "<h2>States over time</h2>\n" +
                 StateChart(found_.states, facts_.start_ns, facts_.end_ns);
        WriteLedger();
        WriteCalls();
        WriteJournal();
        WriteDumps();
        return std::move(html_) + "</body></html>\n";
    }

  private:
    std::string At(int64_t ns) const { return RunTime(facts_, ns); }

    void WriteOutcome();
    void WriteList(const char* heading, const std::vector<std::string>& lines);
    void WriteGlance();
    void WriteSteps();
    void WriteRecordings();
    std::string MissedList(size_t playback) const;
    void WriteLedger();
    void WriteDetection(size_t index);
    void WriteStatistics();
    void WriteCalls();
    std::vector<Row> CallRows() const;
    void WriteJournal();
    std::vector<Row> JournalRows() const;
    void WriteDumps();

    // Calls `write` with the index of each entry that is shown of so many.
    template <typename Write>
    void WriteRows(size_t count, size_t columns, Write write,
                   size_t at_each_end = kShownAtEachEnd) {
        for (size_t i = 0; i < count; ++i) {
            if (count > 2 * at_each_end && i == at_each_end) {
                const size_t left_out = count - 2 * at_each_end;
                html_ += "<tr><td colspan=\"" + std::to_string(columns) + "\" class=\"soft\">" +
                         std::to_string(left_out) + " more</td></tr>\n";
                i += left_out;
            }
            write(i);
        }
    }

    const RunFacts& facts_;
    const RunFindings found_;
    std::string html_;
};

// A run of which nobody judges whether it went well has a colour of its own.
const char* ClassOf(VerdictKind kind) {
    switch (kind) {
        case VerdictKind::kGood:
            return "verdict good";
        case VerdictKind::kBad:
            return "verdict bad";
        case VerdictKind::kUnjudged:
            return "verdict";
    }
    return "";
}

// "1 to 7, 9 and 12" of the numbers up to `count` that are not in `shown`; both count from 0.
std::string OthersText(const std::vector<size_t>& shown, size_t count) {
    std::vector<std::string> ranges;
    size_t next = 0;
    const auto end_range = [&](size_t end) {
        if (next + 1 == end) ranges.push_back(std::to_string(end));
        if (next + 1 < end)
            ranges.push_back(std::to_string(next + 1) + " to " + std::to_string(end));
    };
    for (const size_t one : shown) {
        end_range(one);
        next = one + 1;
    }
    end_range(count);
    std::string text;
    for (size_t i = 0; i < ranges.size(); ++i) {
        if (i != 0) text += i + 1 == ranges.size() ? " and " : ", ";
        text += ranges[i];
    }
    return text;
}

void Report::WriteOutcome() {
    std::array<char, 40> date{};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) != nullptr) {
        (void)std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M", &local);
    }
    html_ += "<h1>" + HtmlText(facts_.title) + "</h1>\n<p class=\"soft\">" + date.data() + ", " +
             At(facts_.end_ns) + " long. Times are seconds of boot time since it began.</p>\n";
    const VerdictKind kind = KindOf(facts_.verdict);
    std::string verdict = VerdictText(facts_);
    // All of a bad one is told below.
    if (kind == VerdictKind::kBad) verdict.resize(std::min(verdict.size(), verdict.find('\n')));
    html_ += std::string("<p class=\"") + ClassOf(kind) + "\">" + HtmlText(verdict) + "</p>\n";
}

void Report::WriteList(const char* heading, const std::vector<std::string>& lines) {
    html_ += std::string("<h2>") + heading + "</h2>\n";
    if (lines.empty()) {
        html_ += "<p>Nothing: no call failed, no event failed to come that was meant to, the HAL "
                 "logged no error and broke no rule of the framework.</p>\n";
        return;
    }
    html_ += "<ul class=\"problems\">";
    for (const std::string& line : lines) html_ += "<li>" + HtmlText(line) + "</li>\n";
    html_ += "</ul>\n";
}

// The run in a few numbers.
void Report::WriteGlance() {
    std::vector<std::pair<const char*, std::string>> numbers;
    const auto count = [](size_t number) { return std::to_string(number); };
    numbers.emplace_back("hotwords spoken", count(found_.spoken.size()));
    numbers.emplace_back("detected by the DSP", count(found_.detections.size()));
    numbers.emplace_back("events at the framework", count(facts_.events.size()));
    numbers.emplace_back("missed", count(found_.missed.size()));
    const auto crashes = std::ranges::count_if(facts_.journal, [](const JournalEntry& entry) {
        return entry.source == "life" && entry.text == "crash";
    });
    if (crashes != 0) numbers.emplace_back("crashes of the DSP", std::to_string(crashes));
    const auto faults = std::ranges::count(facts_.journal, "fault", &JournalEntry::source);
    if (faults != 0) numbers.emplace_back("calls hit by set faults", std::to_string(faults));
    const std::pair<const char*, Step> ways[] = {
            {"longest from record to callback", Step::kReadable},
            {"longest from hotword to callback", Step::kInstant}};
    for (const auto& [name, from] : ways) {
        const auto way = StatisticsBetween(found_.detections, from, Step::kCallback);
        if (way) numbers.emplace_back(name, DurationText(way->max_ns));
    }
    html_ += "<dl class=\"glance\">";
    for (const auto& [name, value] : numbers) {
        html_ += std::string("<div><dt>") + name + "</dt><dd>" + value + "</dd></div>";
    }
    html_ += "</dl>\n";
}

void Report::WriteSteps() {
    if (facts_.steps.empty()) return;
    constexpr size_t kUnfolded = 12;
    const bool is_folded = facts_.steps.size() > kUnfolded;
    html_ += "<h2>What was done</h2>\n";
    if (is_folded) {
        html_ += "<details><summary>" + std::to_string(facts_.steps.size()) + " steps</summary>\n";
    }
    html_ += "<table><thead><tr><th>At</th><th>Step</th></tr></thead><tbody>\n";
    WriteRows(facts_.steps.size(), 2, [&](size_t i) {
        const RecordedText& step = facts_.steps[i];
        html_ += "<tr><td class=\"n\">" + At(step.ns) + "</td><td>" + HtmlText(step.text) +
                 "</td></tr>\n";
    });
    html_ += is_folded ? "</tbody></table></details>\n" : "</tbody></table>\n";
}

void Report::WriteRecordings() {
    html_ += "<h2>What the microphones heard</h2>\n";
    if (facts_.playbacks.empty()) html_ += "<p>No recording was played.</p>\n";
    const std::vector<size_t> shown = PlaybacksToShow(facts_, found_, kShownPlaybacks);
    for (const size_t i : shown) {
        const RecordedPlayback& playback = facts_.playbacks[i];
        html_ += "<h3>Recording " + std::to_string(i + 1);
        if (!playback.heard_ns.empty()) html_ += ", from " + At(playback.HeardAt(0)) + " on";
        html_ += "</h3>\n" + WaveformChart(*playback.recording, MarksOf(facts_, found_, i)) +
                 MissedList(i);
    }
    if (shown.size() < facts_.playbacks.size()) {
        html_ += "<p class=\"soft\">Of " + std::to_string(facts_.playbacks.size()) +
                 " recordings, these are not shown: " + OthersText(shown, facts_.playbacks.size()) +
                 ".</p>\n";
    }
}

std::string Report::MissedList(size_t playback) const {
    std::string html;
    for (const MissedHotword& missed : found_.missed) {
        if (missed.spoken.playback != playback) continue;
        const bool is_good = KindOf(facts_.verdict) == VerdictKind::kGood;
        html += std::string("<p class=\"verdict") + (is_good ? "" : " bad") + "\">No event at " +
                At(missed.heard_ns) + ": " + HtmlText(missed.why) + "</p>\n";
    }
    return html;
}

void Report::WriteLedger() {
    html_ += "<h2>Latency of each step</h2>\n";
    if (found_.detections.empty()) {
        html_ += "<p>The DSP detected nothing.</p>\n";
        return;
    }
    html_ += "<p class=\"soft\">Each step from the one before it that is known.</p>\n"
             "<table class=\"cards\"><thead><tr><th>Detection</th>";
    for (const Step step : kSteps) html_ += std::string("<th>") + StepName(step) + "</th>";
    html_ += "<th>record to callback</th></tr></thead><tbody>\n";
    WriteRows(
            found_.detections.size(), kSteps.size() + 2, [&](size_t i) { WriteDetection(i); },
            kDetectionsAtEachEnd);
    html_ += "</tbody></table>\n";
    WriteStatistics();
}

void Report::WriteDetection(size_t index) {
    const Detection& detection = found_.detections[index];
    html_ += "<tr><td data-label=\"Detection\">" + std::to_string(index + 1) + ", " +
             Name(detection.engine) +
             (detection.kind == Detection::Kind::kHeard ? "" : ", not by ear") + "</td>";
    for (const Step step : kSteps) {
        const auto took = detection.Took(step);
        std::string text = took ? "+" + DurationText(*took) : "-";
        if (!took && detection.At(step) != 0) text = At(detection.At(step));
        html_ += std::string("<td class=\"n\" data-label=\"") + StepName(step) + "\">" + text +
                 "</td>";
    }
    const auto whole = StatisticsBetween({&detection, 1}, Step::kReadable, Step::kCallback);
    html_ += "<td class=\"n\" data-label=\"record to callback\">" +
             (whole ? DurationText(whole->max_ns) : "no event") + "</td></tr>\n";
}

void Report::WriteStatistics() {
    if (found_.detections.size() < 2) return;
    html_ += "<h3>Over all detections</h3>\n<table class=\"cards\"><thead><tr><th>Step</th>"
             "<th>count</th><th>median</th><th>90 %</th><th>99 %</th><th>longest</th></tr></thead>"
             "<tbody>\n";
    std::vector<std::pair<std::string, StepStatistics>> rows;
    for (const StepStatistics& one : Statistics(found_.detections)) {
        rows.emplace_back(StepName(one.step), one);
    }
    for (const Step from : {Step::kReadable, Step::kInstant}) {
        const auto way = StatisticsBetween(found_.detections, from, Step::kCallback);
        if (way) rows.emplace_back(std::string(StepName(from)) + " to callback entered", *way);
    }
    for (const auto& [name, one] : rows) {
        html_ += "<tr><td data-label=\"Step\">" + name +
                 "</td><td class=\"n\" data-label=\"count\">" + std::to_string(one.count) + "</td>";
        const std::pair<const char*, int64_t> columns[] = {{"median", one.p50_ns},
                                                           {"90 %", one.p90_ns},
                                                           {"99 %", one.p99_ns},
                                                           {"longest", one.max_ns}};
        for (const auto& [label, ns] : columns) {
            html_ += std::string("<td class=\"n\" data-label=\"") + label + "\">" +
                     DurationText(ns) + "</td>";
        }
        html_ += "</tr>\n";
    }
    html_ += "</tbody></table>\n";
}

std::vector<Row> Report::CallRows() const {
    const auto named = [](const std::string& name, const std::string& detail) {
        return HtmlText(name) + " <span class=\"soft\">" + HtmlText(detail) + "</span>";
    };
    std::vector<Row> rows;
    for (const RecordedCall& call : facts_.calls) {
        rows.push_back({call.begin_ns, call.result.value_or(0) != 0 ? "bad" : "",
                        named(call.name, call.detail),
                        call.result ? std::to_string(*call.result) : "",
                        DurationText(call.end_ns - call.begin_ns)});
    }
    for (const RecordedEvent& event : facts_.events) {
        rows.push_back({event.entered_ns, "event", named("event:", event.text), "",
                        DurationText(event.returned_ns - event.entered_ns)});
    }
    for (const RecordedStream& stream : facts_.streams) {
        const bool is_open = stream.error.empty();
        const std::string where = "io handle " + std::to_string(stream.io_handle) + ", " +
                                  std::to_string(stream.reads.size()) + " reads";
        rows.push_back(
                {stream.begin_ns, is_open ? "capture" : "bad",
                 named("capture stream", is_open ? where : stream.error), "",
                 stream.closed_ns == 0 ? "" : DurationText(stream.closed_ns - stream.begin_ns)});
    }
    std::ranges::stable_sort(rows, {}, &Row::ns);
    return rows;
}

void Report::WriteCalls() {
    const std::vector<Row> rows = CallRows();
    html_ += "<h2>Calls into the HAL, and events</h2>\n<table><thead><tr><th>At</th><th>Call</th>"
             "<th>Result</th><th>Took</th></tr></thead><tbody>\n";
    WriteRows(rows.size(), 4, [&](size_t i) {
        const Row& row = rows[i];
        html_ += "<tr class=\"" + row.kind + "\"><td class=\"n\">" + At(row.ns) + "</td><td>" +
                 row.what + "</td><td class=\"n\">" + row.result + "</td><td class=\"n\">" +
                 row.took + "</td></tr>\n";
    });
    html_ += "</tbody></table>\n";
}

// The pieces of a model are one row.
std::vector<Row> Report::JournalRows() const {
    std::vector<Row> rows;
    size_t pieces = 0;
    for (const JournalEntry& entry : facts_.journal) {
        if (IsModelPiece(entry)) {
            if (pieces == 0) rows.push_back({.ns = entry.boottime_ns});
            pieces += entry.source == "model-data" ? 1 : 0;
            rows.back().what = "model-data: " + std::to_string(pieces) +
                               (pieces == 1 ? " piece" : " pieces") +
                               " of a model taken, each with its command";
            continue;
        }
        pieces = 0;
        const std::string text =
                entry.source == "command" ? entry.text : entry.source + ": " + entry.text;
        std::string kind = entry.result != 0 ? "bad" : "";
        if (entry.source == "detector") kind = "event";
        for (const char* source : {"life", "fault"}) {
            if (entry.source == source) kind = source;
        }
        rows.push_back({.ns = entry.boottime_ns, .kind = kind, .what = HtmlText(text)});
    }
    return rows;
}

void Report::WriteJournal() {
    const std::vector<Row> rows = JournalRows();
    html_ += "<h2>The DSP's journal</h2>\n<table><thead><tr><th>At</th><th>Entry</th></tr></thead>"
             "<tbody>\n";
    WriteRows(rows.size(), 2, [&](size_t i) {
        const Row& row = rows[i];
        html_ += "<tr class=\"" + row.kind + "\"><td class=\"n\">" + At(row.ns) + "</td><td>" +
                 row.what + "</td></tr>\n";
    });
    html_ += "</tbody></table>\n";
}

void Report::WriteDumps() {
    if (facts_.dumps.empty()) return;
    html_ += "<h2>The HAL's dump at the end</h2>\n<pre>" + HtmlText(facts_.dumps.back().text) +
             "</pre>\n";
    if (facts_.dumps.size() < 2) return;
    html_ += "<h2>Dumps on the way</h2>\n";
    // The latest tell most of what went wrong.
    constexpr size_t kShown = 8;
    const size_t last = facts_.dumps.size() - 1;
    for (size_t i = last > kShown ? last - kShown : 0; i < last; ++i) {
        html_ += "<h3>At " + At(facts_.dumps[i].ns) + "</h3>\n<pre>" +
                 HtmlText(facts_.dumps[i].text) + "</pre>\n";
    }
}

}  // namespace

std::string ReportHtml(const RunFacts& facts) {
    return Report(facts).Write();
}

}  // namespace sthal
