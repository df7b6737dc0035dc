#include "tools/sthal/report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <utility>
#include <vector>

#include "tools/sthal/charts.h"
#include "tools/sthal/ledger.h"
#include "tools/sthal/markup.h"
#include "tools/sthal/missed.h"
#include "tools/sthal/report_style.h"
#include "tools/sthal/states.h"
#include "tools/sthal/timeline.h"

namespace sthal {

namespace {

using virtual_dsp::JournalEntry;

// Of a long list its beginning and its end are shown.
constexpr size_t kShownAtEachEnd = 250;
constexpr size_t kShownDetections = 100;
constexpr size_t kShownPlaybacks = 12;

// What has been found out of the facts.
struct Findings {
    std::vector<StateSpan> states;
    std::vector<Detection> detections;
    std::vector<SpokenHotword> spoken;
    std::vector<MissedHotword> missed;
};

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
    explicit Report(const RunFacts& facts) : facts_(facts) {
        found_.states = StateSpans(facts);
        found_.detections = Detections(facts);
        found_.spoken = FindSpoken(facts);
        found_.missed = ExplainMissed(facts, found_.spoken);
    }

    std::string Write() {
        html_ = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
                "<meta name=\"viewport\" content=\"width=device-width, "
                "initial-scale=1\">\n<title>" +
                HtmlText(facts_.title) + "</title>\n<style>" + kReportStyle +
                "</style></head><body>\n";
        WriteOutcome();
        WriteGlance();
        WriteList("What was wrong", Problems());
        if (const auto notes = Notes(); !notes.empty()) WriteList("Notes", notes);
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
    std::string At(int64_t ns) const {
        char text[40];
        (void)std::snprintf(text, sizeof(text), "%.3f s",
                            static_cast<double>(ns - facts_.start_ns) / 1e9);
        return text;
    }

    void WriteOutcome();
    void WriteList(const char* heading, const std::vector<std::string>& lines);
    void WriteGlance();
    std::vector<std::string> Problems() const;
    std::vector<std::string> Notes() const;
    std::vector<std::string> MissedTexts() const;
    void WriteRecordings();
    std::vector<ChartMark> MarksOf(size_t playback) const;
    void AddCaptured(const RecordedPlayback& playback, const Detection& detection,
                     std::vector<ChartMark>* marks) const;
    std::string MissedList(size_t playback) const;
    void WriteLedger();
    void WriteStatistics();
    void WriteCalls();
    std::vector<Row> CallRows() const;
    void WriteJournal();
    std::vector<Row> JournalRows() const;
    void WriteDumps();

    // Calls `write` with the index of each entry that is shown of so many.
    template <typename Write>
    void WriteRows(size_t count, int columns, Write write) {
        for (size_t i = 0; i < count; ++i) {
            if (count > 2 * kShownAtEachEnd && i == kShownAtEachEnd) {
                const size_t left_out = count - 2 * kShownAtEachEnd;
                html_ += "<tr><td colspan=\"" + std::to_string(columns) + "\" class=\"soft\">" +
                         std::to_string(left_out) + " more</td></tr>\n";
                i += left_out;
            }
            write(i);
        }
    }

    const RunFacts& facts_;
    Findings found_;
    std::string html_;
};

bool IsGood(std::string_view verdict) {
    return verdict.starts_with("OK") || verdict.starts_with("NO HOTWORD");
}

// A run of which nobody judges whether it went well has a colour of its own.
const char* ClassOfVerdict(std::string_view verdict) {
    if (IsGood(verdict)) return "verdict good";
    return verdict.empty() || verdict.starts_with("FAILED") ? "verdict bad" : "verdict";
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
    const std::string verdict =
            facts_.verdict.empty() ? "The run did not come to a verdict." : facts_.verdict;
    html_ += std::string("<p class=\"") + ClassOfVerdict(facts_.verdict) + "\">" +
             HtmlText(verdict) + "</p>\n";
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

std::vector<std::string> Report::MissedTexts() const {
    std::vector<std::string> texts;
    for (const MissedHotword& missed : found_.missed) {
        texts.push_back("No event came of \"" + facts_.models[missed.spoken.model].name +
                        "\", heard until " + At(missed.heard_ns) + ". " + missed.why);
    }
    return texts;
}

// A run that went as it was meant to missed nothing that was meant to come.
std::vector<std::string> Report::Notes() const {
    std::vector<std::string> notes = facts_.notes;
    if (IsGood(facts_.verdict)) std::ranges::copy(MissedTexts(), std::back_inserter(notes));
    return notes;
}

std::vector<std::string> Report::Problems() const {
    std::vector<std::string> problems = facts_.problems;
    if (!IsGood(facts_.verdict)) std::ranges::copy(MissedTexts(), std::back_inserter(problems));
    for (const RecordedCall& call : facts_.calls) {
        if (call.result.value_or(0) == 0) continue;
        problems.push_back(call.name + " at " + At(call.begin_ns) + " returned " +
                           std::to_string(*call.result) + ": " + call.detail);
    }
    for (const RecordedStream& stream : facts_.streams) {
        if (stream.error.empty()) continue;
        problems.push_back("No stream was opened at " + At(stream.begin_ns) + ": " + stream.error);
    }
    for (const RecordedLogLine& line : facts_.log) {
        if (line.severity < android::base::ERROR) continue;
        problems.push_back("The HAL logged at " + At(line.ns) + ": " + line.text);
    }
    for (const JournalEntry& entry : facts_.journal) {
        if (entry.result == 0) continue;
        problems.push_back("The DSP refused at " + At(entry.boottime_ns) + ": " + entry.text);
    }
    if (facts_.left_out != 0) {
        problems.push_back("The run was too long for its record: " +
                           std::to_string(facts_.left_out) + " facts are missing here");
    }
    if (problems.size() > kShownAtEachEnd) {
        const std::string more = std::to_string(problems.size() - kShownAtEachEnd) + " more";
        problems.resize(kShownAtEachEnd);
        problems.push_back(more);
    }
    return problems;
}

void Report::AddCaptured(const RecordedPlayback& playback, const Detection& detection,
                         std::vector<ChartMark>* marks) const {
    if (!detection.stream) return;
    const RecordedStream& stream = facts_.streams[*detection.stream];
    if (stream.reads.empty()) return;
    const uint64_t first = std::max(detection.captured_from, playback.first_frame);
    const uint64_t last =
            detection.captured_from + static_cast<uint64_t>(stream.reads.back().position);
    if (last <= first) return;
    const size_t frames = playback.recording->frames();
    const size_t begin = std::min<size_t>(first - playback.first_frame, frames);
    const size_t end = std::min<size_t>(last - playback.first_frame, frames);
    if (begin < end) marks->push_back({ChartMark::Kind::kCaptured, "captured", {begin, end}});
}

std::vector<ChartMark> Report::MarksOf(size_t index) const {
    const RecordedPlayback& playback = facts_.playbacks[index];
    std::vector<ChartMark> marks;
    for (const SpokenHotword& spoken : found_.spoken) {
        if (spoken.playback != index) continue;
        const bool is_missed = std::ranges::any_of(found_.missed, [&](const auto& missed) {
            return missed.spoken.playback == index && missed.spoken.model == spoken.model &&
                   missed.spoken.range.begin == spoken.range.begin;
        });
        marks.push_back({is_missed ? ChartMark::Kind::kMissed : ChartMark::Kind::kSpoken,
                         "\"" + facts_.models[spoken.model].name + "\"" +
                                 (is_missed ? ", no event" : ", spoken"),
                         spoken.range});
    }
    for (const Detection& detection : found_.detections) {
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
        AddCaptured(playback, detection, &marks);
    }
    for (const RecordedStream& stream : facts_.streams) {
        if (!stream.is_internal || stream.opened_ns == 0 || playback.heard_ns.empty()) continue;
        const int64_t closed_ns = stream.closed_ns == 0 ? facts_.end_ns : stream.closed_ns;
        const audio::FrameRange range{playback.FrameAt(stream.opened_ns),
                                      playback.FrameAt(closed_ns)};
        if (range.begin < range.end) {
            marks.push_back(
                    {ChartMark::Kind::kCaptured, "stream open, internal recognition", range});
        }
    }
    return marks;
}

void Report::WriteRecordings() {
    html_ += "<h2>What the microphones heard</h2>\n";
    if (facts_.playbacks.empty()) html_ += "<p>No recording was played.</p>\n";
    const size_t shown = std::min(facts_.playbacks.size(), kShownPlaybacks);
    for (size_t i = 0; i < shown; ++i) {
        const RecordedPlayback& playback = facts_.playbacks[i];
        html_ += "<h3>Recording " + std::to_string(i + 1);
        if (!playback.heard_ns.empty()) html_ += ", from " + At(playback.HeardAt(0)) + " on";
        html_ += "</h3>\n" + WaveformChart(*playback.recording, MarksOf(i)) + MissedList(i);
    }
    if (shown < facts_.playbacks.size()) {
        html_ += "<p class=\"soft\">" + std::to_string(facts_.playbacks.size() - shown) +
                 " more recordings were played.</p>\n";
    }
}

std::string Report::MissedList(size_t playback) const {
    std::string html;
    for (const MissedHotword& missed : found_.missed) {
        if (missed.spoken.playback != playback) continue;
        html += std::string("<p class=\"verdict") + (IsGood(facts_.verdict) ? "" : " bad") +
                "\">No event at " + At(missed.heard_ns) + ": " + HtmlText(missed.why) + "</p>\n";
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
    const size_t shown = std::min(found_.detections.size(), kShownDetections);
    for (size_t i = 0; i < shown; ++i) {
        const Detection& detection = found_.detections[i];
        html_ += "<tr><td data-label=\"Detection\">" + std::to_string(i + 1) + ", " +
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
    html_ += "</tbody></table>\n";
    if (shown < found_.detections.size()) {
        html_ += "<p class=\"soft\">" + std::to_string(found_.detections.size() - shown) +
                 " more, which are counted below.</p>\n";
    }
    WriteStatistics();
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
        if (entry.source == "life") kind = "life";
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
