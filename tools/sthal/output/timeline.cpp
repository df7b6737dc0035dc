#include "tools/sthal/output/timeline.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <utility>

#include "host/virtual_dsp/dsp/journal.h"

namespace sthal {

namespace {

constexpr size_t kColumns = 100;
constexpr char kBlockIndent[] = "    ";

const char* LaneText(Lane lane) {
    switch (lane) {
        case Lane::kTool:
            return "tool";
        case Lane::kFramework:
            return "framework";
        case Lane::kHal:
            return "hal";
        case Lane::kDsp:
            return "dsp";
        case Lane::kEvent:
            return "event";
        case Lane::kCapture:
            return "capture";
    }
    return "";
}

std::string Wrapped(std::string_view text, std::string_view indent) {
    std::istringstream words{std::string(text)};
    std::string wrapped;
    std::string line(indent);
    for (std::string word; words >> word;) {
        if (line.size() > indent.size() && line.size() + 1 + word.size() > kColumns) {
            wrapped += line + '\n';
            line = indent;
        }
        if (line.size() > indent.size()) line += ' ';
        line += word;
    }
    return wrapped + line + '\n';
}

}  // namespace

Timeline::Timeline(Sink sink)
    : start_ns_(virtual_dsp::BoottimeNow()), sink_(std::move(sink)), record_(start_ns_) {}

void Timeline::Heading(std::string_view title, std::string_view explanation) {
    std::string text;
    {
        std::lock_guard lock(lock_);
        text = "\n" + std::to_string(++headings_) + ". ";
    }
    text.append(title);
    record_.AddStep(virtual_dsp::BoottimeNow(), title);
    Print(text + '\n' + Wrapped(explanation, "   "));
}

void Timeline::Line(Lane lane, std::string_view text) {
    LineAt(virtual_dsp::BoottimeNow(), lane, text);
}

void Timeline::LineAt(int64_t boottime_ns, Lane lane, std::string_view text) {
    if (lane == Lane::kTool) record_.AddStep(boottime_ns, text);
    char prefix[48];
    const double seconds = static_cast<double>(boottime_ns - start_ns_) / 1e9;
    (void)std::snprintf(prefix, sizeof(prefix), "%10.3f s  %-10s  ", seconds, LaneText(lane));
    Print(prefix + std::string(text) + '\n');
}

void Timeline::Block(std::string_view text) {
    std::istringstream lines{std::string(text)};
    std::string block;
    for (std::string line; std::getline(lines, line);) {
        const size_t blanks = std::min(line.find_first_not_of(' '), line.size());
        block += line.size() <= kColumns ? kBlockIndent + line + '\n'
                                         : Wrapped(line, kBlockIndent + std::string(blanks, ' '));
    }
    Print(block);
}

void Timeline::Print(const std::string& text) {
    std::lock_guard lock(lock_);
    if (sink_) {
        sink_(text);
        return;
    }
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
    (void)std::fflush(stdout);  // Each step is seen when it happens, also through a pipe.
}

std::string DurationText(int64_t nanoseconds) {
    char text[48];
    const auto value = static_cast<double>(nanoseconds);
    if (value < 1e3) return "under 1 us";
    if (value < 1e6) {
        (void)std::snprintf(text, sizeof(text), "%.0f us", value / 1e3);
    } else if (value < 1e9) {
        (void)std::snprintf(text, sizeof(text), "%.1f ms", value / 1e6);
    } else {
        (void)std::snprintf(text, sizeof(text), "%.2f s", value / 1e9);
    }
    return text;
}

}  // namespace sthal
