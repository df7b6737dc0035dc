#include "tools/sthal/findings/recording_marks.h"

#include <algorithm>
#include <set>

namespace sthal {

namespace {

using Kind = RecordingMark::Kind;

// A mark for each stretch of audio or silence that a stream delivered, from a frame of the
// recording on. `end_of` tells with which frame a read ended.
template <typename EndOf>
void AddStretches(const Stream& stream, size_t begin, EndOf end_of,
                  std::vector<RecordingMark>* marks) {
    // Of one capture that goes back and forth between audio and silence.
    constexpr size_t kListed = 6;
    std::vector<RecordingMark> stretches;
    for (const Read& read : stream.reads) {
        const size_t end = end_of(read);
        if (read.result <= 0 || end <= begin) continue;
        const Kind kind = read.is_silent ? Kind::kSilent : Kind::kCaptured;
        if (stretches.empty() || stretches.back().kind != kind) {
            stretches.push_back({.kind = kind,
                                 .range = {begin, end},
                                 .is_internal = stream.is_internal,
                                 .is_listed = stretches.size() < kListed});
        }
        stretches.back().range.end = end;
        begin = end;
    }
    if (stretches.size() > kListed) {
        stretches[kListed - 1].more_stretches = stretches.size() - kListed;
    }
    marks->insert(marks->end(), stretches.begin(), stretches.end());
}

void AddSpoken(const RunFindings& found, size_t recording, std::vector<RecordingMark>* marks) {
    for (const SpokenHotword& spoken : found.spoken) {
        if (spoken.recording != recording) continue;
        const bool is_missed = std::ranges::any_of(found.missed, [&](const auto& missed) {
            return missed.spoken.recording == recording && missed.spoken.model == spoken.model &&
                   missed.spoken.range.begin == spoken.range.begin;
        });
        marks->push_back({.kind = is_missed ? Kind::kMissed : Kind::kSpoken,
                          .range = spoken.range,
                          .model = spoken.model});
    }
}

void AddDetection(const RunFacts& facts, const PlayedRecording& played, const DetectionTrail& trail,
                  std::vector<RecordingMark>* marks) {
    const uint64_t first = played.first_frame;
    const uint64_t end = first + played.recording->frames();
    const virtual_dsp::DetectionRaised& raised = trail.raised;
    if (raised.frame < first || raised.frame >= end) return;
    const size_t at = raised.frame - first;
    marks->push_back({.kind = Kind::kDetected,
                      .range = {at, at},
                      .engine = raised.engine,
                      .origin = raised.origin});
    if (!trail.stream) return;
    const auto within = [&](uint64_t microphone_frame) -> size_t {
        return std::clamp(microphone_frame, first, end) - first;
    };
    AddStretches(
            facts.streams[*trail.stream], within(raised.captured_from),
            [&](const Read& read) {
                return within(raised.captured_from + static_cast<uint64_t>(read.position));
            },
            marks);
}

}  // namespace

std::vector<RecordingMark> MarksOf(const RunFacts& facts, const RunFindings& found,
                                   size_t recording) {
    const PlayedRecording& played = facts.recordings[recording];
    std::vector<RecordingMark> marks;
    AddSpoken(found, recording, &marks);
    for (const DetectionTrail& trail : found.trails) AddDetection(facts, played, trail, &marks);
    for (const Stream& stream : facts.streams) {
        if (!stream.is_internal || played.heard.frames() == 0) continue;
        AddStretches(
                stream, played.heard.FrameAt(stream.opened_ns),
                [&](const Read& read) { return played.heard.FrameAt(read.end_ns); }, &marks);
    }
    return marks;
}

std::vector<size_t> RecordingsToShow(const RunFacts& facts, const RunFindings& found, size_t most) {
    std::set<size_t> shown;
    const size_t count = facts.recordings.size();
    if (count != 0) shown.insert(count - 1);
    for (const MissedHotword& missed : found.missed) {
        if (shown.size() < most) shown.insert(missed.spoken.recording);
    }
    for (size_t i = count; i > 0 && shown.size() < most; --i) shown.insert(i - 1);
    return {shown.begin(), shown.end()};
}

}  // namespace sthal
