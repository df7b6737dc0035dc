#include "tools/sthal/output/timeline.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <utility>

#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/output/step_texts.h"
#include "tools/sthal/output/units.h"

namespace sthal {

namespace {

using virtual_dsp::BoottimeNow;
using virtual_dsp::JournalEntry;

constexpr size_t kLineColumns = 100;
constexpr char kBlockIndent[] = "    ";

// One line of position for this much captured audio.
constexpr size_t kPositionFrames = audio::kSampleRateHz / 2;

std::string Wrapped(std::string_view text, std::string_view indent) {
    std::istringstream words{std::string(text)};
    std::string wrapped;
    std::string line(indent);
    for (std::string word; words >> word;) {
        if (line.size() > indent.size() && line.size() + 1 + word.size() > kLineColumns) {
            wrapped += line + '\n';
            line = indent;
        }
        if (line.size() > indent.size()) line += ' ';
        line += word;
    }
    return wrapped + line + '\n';
}

std::string OpeningText(const Stream& stream) {
    if (stream.refusal != StreamRefusal::kNone) return RefusalText(stream);
    return "stream opened on io handle " + std::to_string(stream.io_handle) + ", " +
           std::to_string(stream.channels) + (stream.channels == 1 ? " channel" : " channels");
}

std::string EventText(const Event& event) {
    if (event.record_ns == 0) return ToText(event);
    return ToText(event) + "; " + DurationText(event.entered_ns - event.record_ns) +
           " after the record";
}

}  // namespace

Timeline::Timeline(Sink sink, int64_t start_ns) : start_ns_(start_ns), sink_(std::move(sink)) {}

void Timeline::Show(const Fact& fact) {
    if (const auto* const call = std::get_if<Call>(&fact)) {
        ShowCall(*call);
    } else if (const auto* const line = std::get_if<LogLine>(&fact)) {
        ShowLogLine(*line);
    } else if (const auto* const entry = std::get_if<JournalEntry>(&fact)) {
        const bool wants_details = shown_from_ < android::base::INFO;
        if (wants_details || !IsModelChunk(*entry)) {
            Line(entry->boottime_ns, Lane::kDsp, ToLine(*entry));
        }
    } else if (const auto* const event = std::get_if<Event>(&fact)) {
        if (event->returned_ns == 0) Line(event->entered_ns, Lane::kEvent, EventText(*event));
    } else if (const auto* const broken = std::get_if<BrokenRule>(&fact)) {
        const bool is_note = IsNoteOnly(broken->violation);
        Line(broken->ns, Lane::kEvent, (is_note ? "note: " : "") + ToText(*broken));
    } else if (const auto* const stream = std::get_if<Stream>(&fact)) {
        Line(BoottimeNow(), Lane::kCapture, OpeningText(*stream));
    } else if (const auto* const read = std::get_if<StreamRead>(&fact)) {
        ShowRead(*read);
    } else if (const auto* const closed = std::get_if<StreamClosed>(&fact)) {
        Line(BoottimeNow(), Lane::kCapture,
             "stream closed after " + std::to_string(closed->frames) + " frames" +
                     (closed->has_audio ? "" : ", none of them audio: all samples are 0"));
    } else if (const auto* const held = std::get_if<WakeLocksHeld>(&fact)) {
        Line(held->ns, Lane::kTool, ToText(*held));
    } else if (const auto* const played = std::get_if<PlayedRecording>(&fact)) {
        Line(played->ns, Lane::kTool, ToText(*played));
    } else if (const auto* const step = std::get_if<StoryStep>(&fact)) {
        ShowStep(*step);
    }
}

void Timeline::ShowCall(const Call& call) {
    const bool has_begun = call.end_ns == 0;
    const std::string text = has_begun ? BeginText(call) : EndText(call);
    if (text.empty()) return;
    const Lane lane = IsOfFramework(call.operation) ? Lane::kFramework : Lane::kTool;
    Line(has_begun ? call.begin_ns : call.end_ns, lane, text);
}

void Timeline::ShowLogLine(const LogLine& line) {
    const auto said = ReadHalLine(line);
    const bool is_change = said && said->As<ClientChanged>() != nullptr;
    if (line.severity < shown_from_ && !is_change) return;
    std::string shown;
    if (line.severity == android::base::WARNING) shown = "warning: ";
    if (line.severity > android::base::WARNING) shown = "error: ";
    shown += line.text;
    if (shown_from_ < android::base::INFO) shown += "  [" + line.tag + "]";
    Line(line.ns, Lane::kHal, shown);
}

void Timeline::ShowRead(const StreamRead& read) {
    if (read.read.result < 0) {
        Line(read.read.end_ns, Lane::kCapture, "read failed: " + std::to_string(read.read.result));
        return;
    }
    if (read.is_first_audio) {
        Line(read.read.end_ns, Lane::kCapture,
             "first audio " + DurationText(read.read.end_ns - read.opened_ns) + " after opening");
    }
    const bool is_due = read.frames_before / kPositionFrames != read.frames / kPositionFrames;
    if (!is_due && read.frames_before != 0) return;
    char text[96];
    (void)std::snprintf(text, sizeof(text), "position %6zu frames (%.3f s), timestamp %.6f s",
                        static_cast<size_t>(read.read.position),
                        audio::Seconds(static_cast<size_t>(read.read.position)),
                        static_cast<double>(read.read.timestamp_ns - start_ns_) / 1e9);
    Line(read.read.end_ns, Lane::kCapture, text);
}

void Timeline::ShowStep(const StoryStep& step) {
    switch (step.kind) {
        case StoryStep::Kind::kHeading: {
            int number = 0;
            {
                std::lock_guard lock(lock_);
                number = ++headings_;
            }
            return Print("\n" + std::to_string(number) + ". " + step.text + "\n");
        }
        case StoryStep::Kind::kExplanation:
            return Print(Wrapped(step.text, "   "));
        case StoryStep::Kind::kVerb:
            return Line(step.ns, Lane::kTool, "> " + step.text);
        case StoryStep::Kind::kRemark:
            return Line(step.ns, Lane::kTool, step.text);
    }
}

void Timeline::Line(int64_t ns, Lane lane, std::string_view text) {
    static constexpr const char* kLaneNames[] = {"tool", "framework", "hal",
                                                 "dsp",  "event",     "capture"};
    char prefix[48];
    const double seconds = static_cast<double>(ns - start_ns_) / 1e9;
    (void)std::snprintf(prefix, sizeof(prefix), "%10.3f s  %-10s  ", seconds,
                        kLaneNames[static_cast<size_t>(lane)]);
    Print(prefix + std::string(text) + '\n');
}

void Timeline::ShowBlock(std::string_view text) {
    std::istringstream lines{std::string(text)};
    std::string block;
    for (std::string line; std::getline(lines, line);) {
        const size_t blanks = std::min(line.find_first_not_of(' '), line.size());
        block += line.size() <= kLineColumns
                         ? kBlockIndent + line + '\n'
                         : Wrapped(line, kBlockIndent + std::string(blanks, ' '));
    }
    Print(block);
}

void Timeline::Print(const std::string& text) {
    std::lock_guard lock(lock_);
    sink_(text);
}

}  // namespace sthal
