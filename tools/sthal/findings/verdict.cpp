#include "tools/sthal/findings/verdict.h"

#include <cstdio>
#include <cstdlib>

#include "tools/sthal/output/timeline.h"

namespace sthal {

namespace {

// How far the time stamp of a hotword may be from the truth.
constexpr int64_t kInstantToleranceNs = 2'000'000;

// The start of a capture may differ from where it should be by one block of the microphone.
constexpr size_t kStartToleranceFrames = 160;

Verdict Failed(const std::string& why) {
    return {DemoStatus::kFailed, "FAILED: " + why};
}

// Empty when the captured audio is the microphone's; else what is wrong with it.
std::string CaptureProblem(const Findings& findings) {
    const audio::Comparison& comparison = findings.comparison;
    if (!findings.capture_opened) return "no capture stream could be opened";
    if (!comparison.found) return "the captured audio is not what the microphone heard";
    if (!comparison.IsExact()) return "the captured audio differs from what the microphone heard";
    if (!findings.wants_event) return {};
    const size_t first = comparison.first_frame;
    const size_t hotword_begin = findings.expected->begin + findings.lead_frames;
    const size_t hotword_end = findings.expected->end + findings.lead_frames;
    const size_t preroll = static_cast<size_t>(findings.preroll_ms) * audio::kSampleRateHz / 1000;
    if (first >= hotword_end) return "the capture begins after the hotword: there is no pre-roll";
    if (first + preroll + kStartToleranceFrames < hotword_begin) {
        return "the capture begins long before the hotword: the detection was somewhere else";
    }
    if (!findings.is_ambient && std::llabs(findings.instant_error_ns) > kInstantToleranceNs) {
        return "the hotword's time stamp is off by " +
               DurationText(std::llabs(findings.instant_error_ns));
    }
    return {};
}

}  // namespace

Verdict Judge(const Findings& findings) {
    if (!findings.problems.empty()) return Failed(findings.problems.front());
    const bool has_event = findings.event_handle.has_value();
    if (findings.wants_event && !has_event) {
        if (findings.is_ambient && findings.expected)
            return Failed("music played and no event came");
        if (findings.expected) return Failed("the hotword was spoken and no event came");
        return {DemoStatus::kNoHotword,
                std::string(findings.is_ambient ? "NO MUSIC" : "NO HOTWORD") +
                        ": there is none in the recording, and no event came"};
    }
    if (has_event && !findings.expected) return Failed("an event came and nobody said the hotword");
    if (has_event && findings.event_handle != findings.handle) {
        return Failed("the event is for another model");
    }
    if (const std::string problem = CaptureProblem(findings); !problem.empty()) {
        return Failed(problem);
    }
    if (!findings.wants_event) {
        return {DemoStatus::kDelivered,
                "OK: captured without a detection, sample for sample what the microphone heard"};
    }
    char text[240];
    (void)std::snprintf(text, sizeof(text),
                        "OK: the event reached the framework %s after the DSP's record, and the "
                        "captured audio is sample for sample what the microphone heard%s",
                        DurationText(findings.callback_latency_ns).c_str(),
                        findings.is_ambient ? ", after the same mu-law companding" : "");
    std::string line = text;
    if (!findings.is_ambient) {
        line += "; the hotword's time stamp is off by " +
                DurationText(std::llabs(findings.instant_error_ns));
    }
    return {DemoStatus::kDelivered, line};
}

audio::Comparison Compare(const audio::Sound& heard, const audio::Sound& capture, bool is_ambient) {
    return is_ambient ? audio::CompareMulawCapture(heard, capture)
                      : audio::CompareCapture(heard, capture);
}

}  // namespace sthal
