#include "tools/sthal/findings/latency_breakdown.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace sthal {

namespace {

using virtual_dsp::Engine;
using virtual_dsp::JournalEntry;

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

template <typename Number>
std::optional<Number> NumberAfter(std::string_view text, std::string_view before) {
    const size_t at = text.find(before);
    if (at == std::string_view::npos) return std::nullopt;
    text.remove_prefix(at + before.size());
    Number number{};
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
        return std::nullopt;
    }
    return number;
}

std::optional<Detection> ParseDetection(const JournalEntry& entry) {
    if (entry.source != "detector") return std::nullopt;
    for (const Engine engine : virtual_dsp::kEngines) {
        if (!entry.text.starts_with(Name(engine) + " detected")) continue;
        Detection detection;
        detection.engine = engine;
        if (entry.text.find(" forced ") != std::string::npos) {
            detection.kind = Detection::Kind::kForced;
        } else if (entry.text.find(" internal ") != std::string::npos) {
            detection.kind = Detection::Kind::kInternal;
        }
        detection.frame = NumberAfter<uint64_t>(entry.text, " frame=");
        detection.score = NumberAfter<double>(entry.text, "score=").value_or(0);
        detection.captured_from =
                NumberAfter<uint64_t>(entry.text, "captured from frame ").value_or(0);
        detection.At(Step::kReadable) = entry.boottime_ns;
        return detection;
    }
    return std::nullopt;
}

int64_t HeardAt(const RunFacts& facts, uint64_t frame) {
    for (const RecordedPlayback& playback : facts.playbacks) {
        if (frame < playback.first_frame) continue;
        const uint64_t within = frame - playback.first_frame;
        if (within < playback.recording->frames()) return playback.HeardAt(within);
    }
    return 0;
}

// What became of the record in the DSP.
void FollowRecord(const RunFacts& facts, int64_t until_ns, Detection* detection) {
    const std::string taken = Name(detection->engine) + " record taken";
    const std::string dropped = "unread " + Name(detection->engine) + " record dropped by ";
    const auto begin = std::ranges::lower_bound(facts.journal, detection->At(Step::kReadable), {},
                                                &JournalEntry::boottime_ns);
    for (auto entry = begin; entry != facts.journal.end(); ++entry) {
        if (entry->boottime_ns >= until_ns) return;
        if (entry->source == "life" && entry->text == "crash") {
            detection->dropped_by = "the DSP's crash";
            return;
        }
        if (entry->source != "notification") continue;
        if (entry->text == taken) {
            detection->At(Step::kRead) = entry->boottime_ns;
            return;
        }
        if (entry->text.starts_with(dropped)) {
            detection->dropped_by = entry->text.substr(dropped.size());
            return;
        }
    }
}

bool IsOf(const RunFacts& facts, int handle, Engine engine) {
    return std::ranges::any_of(facts.models, [&](const RecordedModel& model) {
        return model.handle == handle && model.engine == engine;
    });
}

void FollowEvent(const RunFacts& facts, int64_t until_ns, Detection* detection) {
    const int64_t read_ns = detection->At(Step::kRead);
    if (read_ns == 0) return;
    const auto begin =
            std::ranges::lower_bound(facts.events, read_ns, {}, &RecordedEvent::entered_ns);
    for (auto event = begin; event != facts.events.end() && event->entered_ns < until_ns; ++event) {
        if (!IsOf(facts, event->handle, detection->engine)) continue;
        detection->handle = event->handle;
        detection->At(Step::kCallback) = event->entered_ns;
        return;
    }
}

// The io handle that the framework gave with the latest start of a model.
std::optional<int> IoHandleOf(const RunFacts& facts, int handle, int64_t ns) {
    std::optional<int> io_handle;
    for (const RecordedCall& call : facts.calls) {
        if (call.begin_ns > ns) break;
        const bool is_start = call.kind == RecordedCall::Kind::kStart && call.result == 0;
        if (is_start && call.handle == handle) io_handle = call.io_handle;
    }
    return io_handle;
}

void FollowCapture(const RunFacts& facts, int64_t until_ns, Detection* detection) {
    const int64_t event_ns = detection->At(Step::kCallback);
    if (event_ns == 0) return;
    const auto io_handle = IoHandleOf(facts, detection->handle, event_ns);
    const auto stream = std::ranges::find_if(facts.streams, [&](const RecordedStream& one) {
        return one.opened_ns >= event_ns && one.opened_ns < until_ns && !one.is_internal &&
               one.io_handle == io_handle;
    });
    if (stream == facts.streams.end()) return;
    detection->stream = static_cast<size_t>(stream - facts.streams.begin());
    detection->At(Step::kOpened) = stream->opened_ns;
    const auto port = PortOf(detection->engine);
    for (const RecordedRead& read : stream->reads) {
        // The silence that stands in for audio leaves the DSP's buffer empty, too.
        if (read.result <= 0 || read.is_silent) continue;
        if (detection->At(Step::kFirstAudio) == 0) detection->At(Step::kFirstAudio) = read.end_ns;
        // Less than one read is left: the next one has to wait for the microphone.
        if (read.left.Of(port) < static_cast<size_t>(stream->bulk_frames)) {
            detection->At(Step::kLive) = read.end_ns;
            return;
        }
    }
}

// Of at least one time.
StepStatistics StatisticsOf(Step step, std::vector<int64_t> times) {
    std::ranges::sort(times);
    const auto rank = [&](double share) {
        const double nearest = std::ceil(share * static_cast<double>(times.size()));
        return times[static_cast<size_t>(std::max(nearest, 1.0)) - 1];
    };
    return {step, times.size(), rank(0.5), rank(0.9), rank(0.99), times.back()};
}

}  // namespace

const char* StepName(Step step) {
    switch (step) {
        case Step::kInstant:
            return "hotword ended";
        case Step::kReadable:
            return "record readable";
        case Step::kRead:
            return "record read";
        case Step::kCallback:
            return "callback entered";
        case Step::kOpened:
            return "stream opened";
        case Step::kFirstAudio:
            return "first audio";
        case Step::kLive:
            return "caught up with live";
    }
    return "";
}

std::optional<int64_t> Detection::Took(Step step) const {
    if (At(step) == 0) return std::nullopt;
    for (auto before = static_cast<size_t>(step); before-- > 0;) {
        if (times[before] != 0) return At(step) - times[before];
    }
    return std::nullopt;
}

std::vector<Detection> Detections(const RunFacts& facts) {
    std::vector<Detection> detections;
    for (const JournalEntry& entry : facts.journal) {
        if (auto detection = ParseDetection(entry)) detections.push_back(std::move(*detection));
    }
    for (size_t i = 0; i < detections.size(); ++i) {
        Detection& detection = detections[i];
        // An engine detects once after each start, so all of it happens before the next record.
        int64_t until_ns = kNever;
        for (size_t next = i + 1; next < detections.size() && until_ns == kNever; ++next) {
            if (detections[next].engine == detection.engine) {
                until_ns = detections[next].At(Step::kReadable);
            }
        }
        if (detection.frame) detection.At(Step::kInstant) = HeardAt(facts, *detection.frame);
        FollowRecord(facts, until_ns, &detection);
        FollowEvent(facts, until_ns, &detection);
        FollowCapture(facts, until_ns, &detection);
    }
    return detections;
}

std::vector<StepStatistics> Statistics(std::span<const Detection> detections) {
    std::vector<StepStatistics> all;
    for (const Step step : kSteps) {
        std::vector<int64_t> times;
        for (const Detection& detection : detections) {
            if (const auto took = detection.Took(step)) times.push_back(*took);
        }
        if (!times.empty()) all.push_back(StatisticsOf(step, std::move(times)));
    }
    return all;
}

std::optional<StepStatistics> StatisticsBetween(std::span<const Detection> detections, Step from,
                                                Step to) {
    std::vector<int64_t> times;
    for (const Detection& detection : detections) {
        if (detection.At(from) == 0 || detection.At(to) == 0) continue;
        times.push_back(detection.At(to) - detection.At(from));
    }
    if (times.empty()) return std::nullopt;
    return StatisticsOf(to, std::move(times));
}

}  // namespace sthal
