#include "tools/sthal/output/charts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "tools/sthal/output/markup.h"
#include "tools/sthal/output/timeline.h"

namespace sthal {

namespace {

constexpr size_t kColumns = 800;
constexpr int kHalfHeight = 100;  // Of the drawing's own units.

std::string Percent(double share) {
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%.3f%%", 100 * std::clamp(share, 0.0, 1.0));
    return text;
}

std::string SecondsText(double seconds) {
    char text[40];
    (void)std::snprintf(text, sizeof(text), "%.3f s", seconds);
    return text;
}

// The step between marks of an axis: 1, 2 or 5 times a power of ten, at most 8 of them.
double TickStep(double seconds) {
    double step = std::pow(10, std::floor(std::log10(std::max(seconds, 1e-3) / 8)));
    for (const double factor : {2.0, 2.5, 2.0}) {
        if (seconds / step <= 8) break;
        step *= factor;
    }
    return step;
}

std::string Axis(double seconds) {
    std::string html = "<div class=\"axis\" aria-hidden=\"true\">";
    const double step = TickStep(seconds);
    for (int tick = 0; tick * step <= seconds; ++tick) {
        const double at = tick * step;
        char label[32];
        (void)std::snprintf(label, sizeof(label), "%g s", std::round(at * 1000) / 1000);
        // At the right edge of a narrow page there is room for the mark only.
        constexpr double kLastLabel = 0.88;
        html += "<span style=\"left:" + Percent(at / seconds) + "\">" +
                (at / seconds <= kLastLabel ? label : "") + "</span>";
    }
    return html + "</div>\n";
}

// The outline of the loudest samples of each column, up and down.
std::string Outline(const audio::Sound& mono) {
    const size_t columns = std::min(kColumns, mono.frames());
    std::vector<int> peaks(columns);
    int loudest = 1;
    for (size_t i = 0; i < mono.frames(); ++i) {
        int& peak = peaks[i * columns / mono.frames()];
        peak = std::max(peak, std::abs(int{mono.samples[i]}));
        loudest = std::max(loudest, peak);
    }
    std::string up;
    std::string down;
    for (size_t i = 0; i < columns; ++i) {
        const int height = peaks[i] * (kHalfHeight - 4) / loudest;
        const std::string x = std::to_string(i) + ",";
        up += x + std::to_string(kHalfHeight - height) + " ";
        down.insert(0, x + std::to_string(kHalfHeight + height + 1) + " ");
    }
    return up + down;
}

// What makes a row: not an engine that nobody used.
std::set<std::string> UsedSubjects(std::span<const StateSpan> spans) {
    std::set<std::string> used;
    for (const StateSpan& span : spans) {
        if (span.state != "idle") used.insert(span.subject);
    }
    return used;
}

const char* ClassOf(ChartMark::Kind kind) {
    switch (kind) {
        case ChartMark::Kind::kSpoken:
            return "spoken";
        case ChartMark::Kind::kMissed:
            return "missed";
        case ChartMark::Kind::kDetected:
            return "detected";
        case ChartMark::Kind::kCaptured:
            return "captured";
        case ChartMark::Kind::kSilent:
            return "silent";
    }
    return "";
}

// Colours by what a state means for a detection.
const char* ClassOfState(const std::string& state) {
    for (const char* name : {"down", "offline"}) {
        if (state == name) return "bad";
    }
    for (const char* name : {"detecting", "StartDetecting"}) {
        if (state == name) return "listening";
    }
    for (const char* name : {"detected", "CallbackProcessing", "Buffering"}) {
        if (state == name) return "active";
    }
    if (state.find("nternal") != std::string::npos) return "internal";
    return "quiet";
}

}  // namespace

std::string WaveformChart(const audio::Sound& recording, std::span<const ChartMark> marks) {
    if (recording.frames() == 0) return "<p>The recording is empty.</p>\n";
    const auto frames = static_cast<double>(recording.frames());
    const audio::Sound mono = recording.Channel(0);
    const std::string columns = std::to_string(std::min(kColumns, mono.frames()));
    std::string html = "<div class=\"wave\"><svg viewBox=\"0 0 " + columns +
                       " 200\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"waveform\">"
                       "<polygon points=\"" +
                       Outline(mono) + "\"/></svg>";
    std::string list = "<ul class=\"marks\">";
    for (const ChartMark& mark : marks) {
        const std::string kind = ClassOf(mark.kind);
        const auto begin = static_cast<double>(mark.range.begin);
        const auto end = static_cast<double>(std::max(mark.range.begin, mark.range.end));
        html += "<i class=\"mark " + kind + "\" style=\"left:" + Percent(begin / frames) +
                ";width:" + Percent((end - begin) / frames) + "\"></i>";
        std::string when = SecondsText(begin / audio::kSampleRateHz);
        if (mark.label.empty()) continue;
        if (end > begin) when += " to " + SecondsText(end / audio::kSampleRateHz);
        list += "<li><i class=\"key ";
        list += kind + "\"></i>" + HtmlText(mark.label) + " <span class=\"when\">";
        list += when + "</span></li>";
    }
    return html + "</div>" + Axis(frames / audio::kSampleRateHz) + list + "</ul>\n";
}

std::string StateChart(std::span<const StateSpan> spans, int64_t start_ns, int64_t end_ns) {
    if (spans.empty() || end_ns <= start_ns) return "<p>No states were seen.</p>\n";
    const auto length = static_cast<double>(end_ns - start_ns);
    // In a long run, what is too narrow to be seen would only make the page slow.
    constexpr size_t kMany = 4000;
    constexpr double kNarrow = 0.0005;
    const std::set<std::string> used = UsedSubjects(spans);
    std::string html = "<div class=\"states\">\n";
    std::string subject;
    for (const StateSpan& span : spans) {
        if (!used.contains(span.subject)) continue;
        if (span.subject != subject) {
            if (!subject.empty()) html += "</div></div>\n";
            subject = span.subject;
            html += "<div class=\"row\"><div class=\"name\">" + HtmlText(subject) +
                    "</div><div class=\"bar\">";
        }
        const double begin = static_cast<double>(span.begin_ns - start_ns) / length;
        const double share = static_cast<double>(span.end_ns - span.begin_ns) / length;
        if (spans.size() > kMany && share < kNarrow) continue;
        const std::string text = HtmlText(span.state);
        html += std::string("<i class=\"") + ClassOfState(span.state) + "\" style=\"left:";
        html += Percent(begin) + ";width:" + Percent(share) + "\" title=\"";
        html += text;
        html += ", " + SecondsText(begin * length / 1e9) + " for ";
        html += DurationText(span.end_ns - span.begin_ns) + "\">";
        // In less than this much there is no room for a letter and its dots, even on a wide page.
        constexpr double kRoomForText = 0.03;
        if (share >= kRoomForText) html += text;
        html += "</i>";
    }
    return html + "</div></div>\n<div class=\"row\"><div class=\"name\"></div>" +
           Axis(length / 1e9) + "</div></div>\n";
}

}  // namespace sthal
