#include "tools/sthal/output/page.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ctime>
#include <span>
#include <utility>
#include <variant>
#include <vector>

#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/recording_marks.h"
#include "tools/sthal/output/charts.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/output/html_template.h"
#include "tools/sthal/output/step_texts.h"
#include "tools/sthal/output/units.h"

namespace sthal {

namespace {

using nlohmann::json;
using virtual_dsp::JournalEntry;

// Of a long list its beginning and its end are shown.
constexpr size_t kShownAtEachEnd = 250;
constexpr size_t kDetectionsAtEachEnd = 50;
constexpr size_t kShownRecordings = 12;
constexpr size_t kEarlierDumps = 8;  // The latest tell most of what went wrong.
constexpr size_t kUnfoldedSteps = 12;

// Makes a row of each of `list` that is shown.
template <typename List, typename MakeRow>
json Rows(const List& list, MakeRow make_row, size_t at_each_end = kShownAtEachEnd) {
    json rows = json::array();
    for (size_t i = 0; i < list.size(); ++i) {
        if (list.size() > 2 * at_each_end && i == at_each_end) {
            const size_t left_out = list.size() - 2 * at_each_end;
            rows.push_back({{"left_out", left_out}});
            i += left_out;
        }
        rows.push_back(make_row(list[i]));
    }
    return rows;
}

// A run of which nobody judges whether it went well has no class of its own.
const char* ClassOf(Grade grade) {
    return grade == Grade::kGood ? "good" : grade == Grade::kBad ? "bad" : "";
}

std::string HitsText(const problem::FaultsSet& faults) {
    return (faults.is_at_least ? "at least " : "") + std::to_string(faults.hits);
}

// The run in a few numbers.
json Glance(const RunFacts& facts, const RunFindings& found) {
    const auto crashes = std::ranges::count_if(facts.journal, [](const JournalEntry& entry) {
        const auto* const power = entry.As<virtual_dsp::PowerChanged>();
        return power != nullptr && !power->is_up;
    });
    // What is forced, or comes of an internal recognition, nobody had to hear.
    const auto heard = std::ranges::count_if(found.trails, [](const DetectionTrail& trail) {
        return trail.raised.origin == virtual_dsp::DetectionRaised::Origin::kHeard;
    });
    const auto faults = FaultsSetIn(facts);
    const auto longest_from = [&](LatencyStep step) {
        const auto way = StatisticsBetween(found.trails, step, LatencyStep::kCallback);
        return way ? DurationText(way->max_ns) : "";
    };
    return {{"spoken", found.spoken.size()},
            {"detected", heard},
            {"events", facts.events.size()},
            {"missed", found.missed.size()},
            {"crashes", crashes == 0 ? json() : json(crashes)},
            {"fault_hits", faults ? json(HitsText(*faults)) : json()},
            {"longest_from_record", longest_from(LatencyStep::kReadable)},
            {"longest_from_hotword", longest_from(LatencyStep::kHotwordEnd)}};
}

json ProblemList(const std::vector<Problem>& problems, const RunFacts& facts,
                 const RunFindings& found) {
    if (problems.empty()) return {};
    json lines = json::array();
    for (const Problem& problem : problems) lines.push_back(ToText(problem, facts, found));
    return {{"lines", lines}};
}

json Steps(const RunFacts& facts) {
    const std::vector<DoneStep> steps = StepsOf(facts);
    if (steps.empty()) return {};
    const auto row = [&](const DoneStep& step) -> json {
        return {{"at", RunTime(facts, step.ns)}, {"text", step.text}};
    };
    return {{"count", steps.size()},
            {"is_folded", steps.size() > kUnfoldedSteps},
            {"rows", Rows(steps, row)}};
}

json Recording(const RunFacts& facts, const RunFindings& found, size_t index) {
    const PlayedRecording& recording = facts.recordings[index];
    json missed = json::array();
    for (const MissedHotword& one : found.missed) {
        if (one.spoken.recording != index) continue;
        // What was meant to be missed is not wrong.
        const bool is_good = GradeOf(facts.verdict.kind) == Grade::kGood;
        missed.push_back({{"grade", is_good ? "" : "bad"},
                          {"at", RunTime(facts, one.heard_ns)},
                          {"why", MissedText(one, facts)}});
    }
    const bool is_heard = recording.heard.frames() != 0;
    return {{"number", index + 1},
            {"from", is_heard ? RunTime(facts, recording.heard.At(0)) : ""},
            {"waveform", WaveformChart(facts, *recording.recording, MarksOf(facts, found, index))},
            {"missed", missed}};
}

// "1 to 7, 9 and 12" of the numbers up to `count` that are not in `shown`; both count from 0.
std::string OthersText(std::vector<size_t> shown, size_t count) {
    std::vector<std::string> ranges;
    size_t next = 0;
    shown.push_back(count);
    for (const size_t one : shown) {
        const std::string first = next + 1 < one ? std::to_string(next + 1) + " to " : "";
        if (next < one) ranges.push_back(first + std::to_string(one));
        next = one + 1;
    }
    std::string text;
    for (size_t i = 0; i < ranges.size(); ++i) {
        if (i != 0) text += i + 1 == ranges.size() ? " and " : ", ";
        text += ranges[i];
    }
    return text;
}

json Recordings(const RunFacts& facts, const RunFindings& found) {
    const std::vector<size_t> shown = RecordingsToShow(facts, found, kShownRecordings);
    const size_t count = facts.recordings.size();
    json recordings = json::array();
    for (const size_t index : shown) recordings.push_back(Recording(facts, found, index));
    json not_shown;
    if (shown.size() < count) not_shown = {{"count", count}, {"which", OthersText(shown, count)}};
    return {{"recordings", recordings}, {"not_shown", not_shown}};
}

json Statistics(const std::vector<DetectionTrail>& trails) {
    if (trails.size() < 2) return {};
    json rows = json::array();
    const auto add = [&](const std::string& name, const LatencyStatistics& one) {
        rows.push_back({{"name", name},
                        {"count", one.count},
                        {"median", DurationText(one.p50_ns)},
                        {"p90", DurationText(one.p90_ns)},
                        {"p99", DurationText(one.p99_ns)},
                        {"longest", DurationText(one.max_ns)}});
    };
    for (const LatencyStatistics& one : Statistics(std::span(trails))) {
        add(StepName(one.step), one);
    }
    for (const LatencyStep from : {LatencyStep::kReadable, LatencyStep::kHotwordEnd}) {
        const auto way = StatisticsBetween(trails, from, LatencyStep::kCallback);
        if (way) add(std::string(StepName(from)) + " to callback entered", *way);
    }
    return {{"rows", rows}};
}

json Latency(const RunFacts& facts, const std::vector<DetectionTrail>& trails) {
    if (trails.empty()) return {};
    json names = json::array();
    for (const LatencyStep step : kLatencySteps) names.push_back(StepName(step));
    const auto row = [&](const DetectionTrail& trail) -> json {
        json cells = json::array();
        for (const LatencyStep step : kLatencySteps) {
            const auto took = trail.Took(step);
            std::string text = took ? "+" + DurationText(*took) : "-";
            if (!took && trail.At(step) != 0) text = RunTime(facts, trail.At(step));
            cells.push_back({{"step", StepName(step)}, {"text", text}});
        }
        const auto whole =
                StatisticsBetween({&trail, 1}, LatencyStep::kReadable, LatencyStep::kCallback);
        return {{"number", &trail - trails.data() + 1},
                {"engine", Name(trail.raised.engine)},
                {"is_not_heard",
                 trail.raised.origin != virtual_dsp::DetectionRaised::Origin::kHeard},
                {"cells", cells},
                {"whole", whole ? DurationText(whole->max_ns) : ""}};
    };
    return {{"step_names", names},
            {"rows", Rows(trails, row, kDetectionsAtEachEnd)},
            {"statistics", Statistics(trails)}};
}

std::string Took(int64_t begin_ns, int64_t end_ns) {
    return end_ns == 0 ? "" : DurationText(end_ns - begin_ns);  // 0: it goes on.
}

json ExchangeRow(const Call& call) {
    return {{"kind", call.result.value_or(0) != 0 ? "bad" : ""},
            {"name", CallName(call.operation)},
            {"detail", CallDetail(call)},
            {"result", call.result ? json(*call.result) : json()},
            {"took", Took(call.begin_ns, call.end_ns)}};
}

json ExchangeRow(const Event& event) {
    return {{"kind", "event"},
            {"name", "event:"},
            {"detail", ToText(event)},
            {"result", {}},
            {"took", Took(event.entered_ns, event.returned_ns)}};
}

json ExchangeRow(const Stream& stream) {
    const bool is_open = stream.refusal == StreamRefusal::kNone;
    const std::string where = "io handle " + std::to_string(stream.io_handle) + ", " +
                              std::to_string(stream.reads.size()) + " reads";
    return {{"kind", is_open ? "capture" : "bad"},
            {"name", "capture stream"},
            {"detail", is_open ? where : RefusalText(stream)},
            {"result", {}},
            {"took", Took(stream.begin_ns, stream.closed_ns)}};
}

// What went on between the framework and the HAL.
json Calls(const RunFacts& facts) {
    struct Exchange {
        int64_t ns;
        std::variant<const Call*, const Event*, const Stream*> what;
    };
    std::vector<Exchange> exchanges;
    for (const Call& call : facts.calls) exchanges.push_back({call.begin_ns, &call});
    for (const Event& event : facts.events) exchanges.push_back({event.entered_ns, &event});
    for (const Stream& stream : facts.streams) exchanges.push_back({stream.begin_ns, &stream});
    std::ranges::stable_sort(exchanges, {}, &Exchange::ns);
    return Rows(exchanges, [&](const Exchange& exchange) {
        json row = std::visit([](const auto* one) { return ExchangeRow(*one); }, exchange.what);
        row["at"] = RunTime(facts, exchange.ns);
        return row;
    });
}

const char* ClassOf(const JournalEntry& entry) {
    if (entry.As<virtual_dsp::DetectionRaised>() != nullptr) return "event";
    if (entry.As<virtual_dsp::PowerChanged>() != nullptr) return "life";
    if (entry.As<virtual_dsp::FaultHit>() != nullptr) return "fault";
    return IsRefusal(entry) ? "bad" : "";
}

// The chunks of a model are one row.
json JournalRows(const RunFacts& facts) {
    struct Line {
        const JournalEntry* entry;  // The first one, of chunks.
        size_t chunks = 0;
    };
    std::vector<Line> lines;
    bool is_in_model = false;
    for (const JournalEntry& entry : facts.journal) {
        const bool is_chunk = IsModelChunk(entry);
        if (!is_chunk || !is_in_model) lines.push_back({&entry});
        is_in_model = is_chunk;
        if (is_chunk && entry.As<virtual_dsp::ChunkTaken>() != nullptr) ++lines.back().chunks;
    }
    return Rows(lines, [&](const Line& line) -> json {
        const std::string text = line.chunks == 0
                                         ? ToLine(*line.entry)
                                         : "model-data: " + std::to_string(line.chunks) +
                                                   (line.chunks == 1 ? " chunk" : " chunks") +
                                                   " of a model taken, each with its command";
        return {{"kind", ClassOf(*line.entry)},
                {"at", RunTime(facts, line.entry->boottime_ns)},
                {"text", text}};
    });
}

json Dumps(const RunFacts& facts) {
    if (facts.dumps.empty()) return {{"last_dump", {}}, {"earlier_dumps", {}}};
    const size_t last = facts.dumps.size() - 1;
    json earlier = json::array();
    for (size_t i = last - std::min(last, kEarlierDumps); i < last; ++i) {
        earlier.push_back(
                {{"at", RunTime(facts, facts.dumps[i].ns)}, {"text", facts.dumps[i].text}});
    }
    return {{"last_dump", {{"text", facts.dumps[last].text}}},
            {"earlier_dumps", last == 0 ? json() : json{{"dumps", earlier}}}};
}

}  // namespace

const std::string& PageTemplate() {
    static const std::string html =
#include "page.inc"
            ;
    return html;
}

json PageData(const RunFacts& facts, const RunFindings& found) {
    const Grade grade = GradeOf(facts.verdict.kind);
    std::string verdict = VerdictText(facts.verdict);
    // All of a bad one is told below.
    if (grade == Grade::kBad) verdict.resize(std::min(verdict.size(), verdict.find('\n')));
    const ProblemsAndNotes told = Problems(facts, found);
    json data = {{"title", facts.title},
                 {"length", RunTime(facts, facts.end_ns)},
                 {"grade", ClassOf(grade)},
                 {"verdict", verdict},
                 {"problems", ProblemList(told.problems, facts, found)},
                 {"notes", ProblemList(told.notes, facts, found)},
                 {"steps", Steps(facts)},
                 {"states", StateChart(facts, found.states)},
                 {"latency", Latency(facts, found.trails)},
                 {"calls", Calls(facts)},
                 {"journal", JournalRows(facts)}};
    data.update(Glance(facts, found));
    data.update(Recordings(facts, found));
    data.update(Dumps(facts));
    return data;
}

std::string ReportHtml(const RunFacts& facts) {
    json data = PageData(facts, RunFindings(facts));
    char date[40] = "";
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) != nullptr) {
        (void)std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M", &local);
    }
    data["date"] = date;
    return FillTemplate(PageTemplate(), data);
}

}  // namespace sthal
