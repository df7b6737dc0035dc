#include "tools/sthal/output/charts.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/output/units.h"

namespace sthal {

namespace {

using nlohmann::json;

constexpr size_t kChartColumns = 800;
constexpr int kHalfHeight = 100;  // Of the template's drawing.

double Percent(double share) {
    return std::round(1e5 * std::clamp(share, 0.0, 1.0)) / 1e3;
}

std::string Formatted(const char* format, double value) {
    char text[40];
    (void)std::snprintf(text, sizeof(text), format, value);
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

json Axis(double seconds) {
    json ticks = json::array();
    const double step = TickStep(seconds);
    for (int tick = 0; tick * step <= seconds; ++tick) {
        const double at = tick * step;
        // At the right edge of a narrow page there is room for the mark only.
        constexpr double kLastLabel = 0.88;
        const bool has_room = at / seconds <= kLastLabel;
        ticks.push_back({{"left", Percent(at / seconds)},
                         {"label", has_room ? Formatted("%g", std::round(at * 1000) / 1000) : ""}});
    }
    return ticks;
}

// The outline of the loudest samples of each column, up and down.
std::string Outline(const audio::Sound& mono) {
    const size_t columns = std::min(kChartColumns, mono.frames());
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

// Classes of the template's style.
const char* ClassOf(RecordingMark::Kind kind) {
    switch (kind) {
        case RecordingMark::Kind::kSpoken:
            return "spoken";
        case RecordingMark::Kind::kMissed:
            return "missed";
        case RecordingMark::Kind::kDetected:
            return "detected";
        case RecordingMark::Kind::kCaptured:
            return "captured";
        case RecordingMark::Kind::kSilent:
            return "silent";
    }
    return "";
}

// What a state means for a detection, as a class of the template's style.
const char* ClassOf(const State& state) {
    if (state == State(DspState::kDown) || state == State(SoundCardState::kOffline)) return "bad";
    if (const auto* const engine = std::get_if<EngineState>(&state)) {
        if (*engine == EngineState::kDetecting) return "listening";
        if (*engine == EngineState::kDetected) return "active";
        if (*engine == EngineState::kInternalRecognition) return "internal";
    }
    if (const auto* const client = std::get_if<ClientState>(&state)) {
        if (*client == ClientState::kStartDetecting) return "listening";
        if (*client == ClientState::kCallbackProcessing || *client == ClientState::kBuffering) {
            return "active";
        }
        if (*client == ClientState::kInternalForceDetected) return "internal";
    }
    return "quiet";
}

}  // namespace

json WaveformChart(const RunFacts& facts, const audio::Sound& recording,
                   std::span<const RecordingMark> marks) {
    if (recording.frames() == 0) return {};
    const auto frames = static_cast<double>(recording.frames());
    const auto seconds = [](double frame) {
        return Formatted("%.3f", frame / audio::kSampleRateHz);
    };
    json drawn = json::array();
    json listed = json::array();
    for (const RecordingMark& mark : marks) {
        const char* const kind = ClassOf(mark.kind);
        const auto begin = static_cast<double>(mark.range.begin);
        const auto end = static_cast<double>(std::max(mark.range.begin, mark.range.end));
        drawn.push_back({{"kind", kind},
                         {"left", Percent(begin / frames)},
                         {"width", Percent((end - begin) / frames)}});
        if (!mark.is_listed) continue;
        listed.push_back({{"kind", kind},
                          {"label", LabelOf(mark, facts)},
                          {"begin", seconds(begin)},
                          {"end", end > begin ? seconds(end) : ""}});
    }
    return {{"columns", std::min(kChartColumns, recording.frames())},
            {"outline", Outline(recording.Channel(0))},
            {"marks", drawn},
            {"axis", Axis(frames / audio::kSampleRateHz)},
            {"listed", listed}};
}

json StateChart(const RunFacts& facts, std::span<const StateSpan> spans) {
    if (spans.empty() || facts.end_ns <= facts.start_ns) return {};
    const auto length = static_cast<double>(facts.end_ns - facts.start_ns);
    // In a long run, what is too narrow to be seen would only make the page slow.
    constexpr size_t kMany = 4000;
    constexpr double kNarrow = 0.0005;
    // In less than this much there is no room for a letter and its dots, even on a wide page.
    constexpr double kRoomForText = 0.03;
    std::set<Subject> used;  // Not an engine that is idle all the time.
    for (const StateSpan& span : spans) {
        if (span.state != State(EngineState::kIdle)) used.insert(span.subject);
    }
    json subjects = json::array();
    for (const Subject& subject : used) {
        json drawn = json::array();
        for (const StateSpan& span : spans) {
            const int64_t duration_ns = span.end_ns - span.begin_ns;
            const double share = static_cast<double>(duration_ns) / length;
            if (span.subject != subject || (spans.size() > kMany && share < kNarrow)) continue;
            const auto begin = static_cast<double>(span.begin_ns - facts.start_ns);
            drawn.push_back({{"meaning", ClassOf(span.state)},
                             {"left", Percent(begin / length)},
                             {"width", Percent(share)},
                             {"state", Name(span.state)},
                             {"begin", Formatted("%.3f", begin / 1e9)},
                             {"duration", DurationText(duration_ns)},
                             {"is_wide", share >= kRoomForText}});
        }
        subjects.push_back({{"name", Name(subject)}, {"spans", drawn}});
    }
    return {{"subjects", subjects}, {"axis", Axis(length / 1e9)}};
}

}  // namespace sthal
