#include "tools/sthal/findings/latency_breakdown.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sthal {

namespace {

using virtual_dsp::Engine;
using virtual_dsp::JournalEntry;

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

int64_t HeardAt(const RunFacts& facts, uint64_t frame) {
    for (const PlayedRecording& played : facts.recordings) {
        if (frame < played.first_frame) continue;
        const uint64_t within = frame - played.first_frame;
        if (within < played.recording->frames()) return played.heard.At(within);
    }
    return 0;
}

// What became of the record in the DSP.
void FollowRecord(const RunFacts& facts, int64_t until_ns, DetectionTrail* trail) {
    const Engine engine = trail->raised.engine;
    const auto begin = std::ranges::lower_bound(facts.journal, trail->At(LatencyStep::kReadable),
                                                {}, &JournalEntry::boottime_ns);
    for (auto entry = begin; entry != facts.journal.end(); ++entry) {
        if (entry->boottime_ns >= until_ns) return;
        const auto* const power = entry->As<virtual_dsp::PowerChanged>();
        const auto* const taken = entry->As<virtual_dsp::RecordTaken>();
        const auto* const dropped = entry->As<virtual_dsp::RecordDropped>();
        if (power != nullptr && !power->is_up) {
            trail->dropped_by = DspCrash{};
            return;
        }
        if (taken != nullptr && taken->engine == engine) {
            trail->At(LatencyStep::kRead) = entry->boottime_ns;
            return;
        }
        if (dropped != nullptr && dropped->engine == engine) {
            trail->dropped_by = dropped->cause;
            return;
        }
    }
}

bool IsOf(const RunFacts& facts, int handle, Engine engine) {
    return std::ranges::any_of(facts.models, [&](const Model& model) {
        return model.handle == handle && model.engine == engine;
    });
}

void FollowEvent(const RunFacts& facts, int64_t until_ns, DetectionTrail* trail) {
    const int64_t read_ns = trail->At(LatencyStep::kRead);
    if (read_ns == 0) return;
    const auto begin = std::ranges::lower_bound(facts.events, read_ns, {}, &Event::entered_ns);
    for (auto event = begin; event != facts.events.end() && event->entered_ns < until_ns; ++event) {
        if (!IsOf(facts, event->handle, trail->raised.engine)) continue;
        trail->handle = event->handle;
        trail->At(LatencyStep::kCallback) = event->entered_ns;
        return;
    }
}

// The io handle that the framework gave with the latest start of a model.
std::optional<int> IoHandleOf(const RunFacts& facts, int handle, int64_t ns) {
    std::optional<int> io_handle;
    for (const Call& call : facts.calls) {
        if (call.begin_ns > ns) break;
        const bool is_start = call.operation == Operation::kStartRecognition && call.result == 0;
        if (is_start && call.handle == handle) io_handle = call.io_handle;
    }
    return io_handle;
}

void FollowCapture(const RunFacts& facts, int64_t until_ns, DetectionTrail* trail) {
    const int64_t event_ns = trail->At(LatencyStep::kCallback);
    if (event_ns == 0) return;
    const auto io_handle = IoHandleOf(facts, trail->handle, event_ns);
    const auto stream = std::ranges::find_if(facts.streams, [&](const Stream& one) {
        return one.opened_ns >= event_ns && one.opened_ns < until_ns && !one.is_internal &&
               one.io_handle == io_handle;
    });
    if (stream == facts.streams.end()) return;
    trail->stream = static_cast<size_t>(stream - facts.streams.begin());
    trail->At(LatencyStep::kOpened) = stream->opened_ns;
    const auto port = PortOf(trail->raised.engine);
    for (const Read& read : stream->reads) {
        // The silence that stands in for audio leaves the DSP's buffer empty, too.
        if (read.result <= 0 || read.is_silent) continue;
        if (trail->At(LatencyStep::kFirstAudio) == 0)
            trail->At(LatencyStep::kFirstAudio) = read.end_ns;
        // Less than one read is left: the next one has to wait for the microphone.
        if (read.left.Of(port) < static_cast<size_t>(stream->bulk_frames)) {
            trail->At(LatencyStep::kLive) = read.end_ns;
            return;
        }
    }
}

// Of at least one time.
LatencyStatistics StatisticsOf(LatencyStep step, std::vector<int64_t> times) {
    std::ranges::sort(times);
    const auto rank = [&](double share) {
        const double nearest = std::ceil(share * static_cast<double>(times.size()));
        return times[static_cast<size_t>(std::max(nearest, 1.0)) - 1];
    };
    return {step, times.size(), rank(0.5), rank(0.9), rank(0.99), times.back()};
}

}  // namespace

std::optional<int64_t> DetectionTrail::Took(LatencyStep step) const {
    if (At(step) == 0) return std::nullopt;
    for (auto before = static_cast<size_t>(step); before-- > 0;) {
        if (times[before] != 0) return At(step) - times[before];
    }
    return std::nullopt;
}

std::vector<DetectionTrail> DetectionTrails(const RunFacts& facts) {
    std::vector<DetectionTrail> trails;
    for (const JournalEntry& entry : facts.journal) {
        const auto* const raised = entry.As<virtual_dsp::DetectionRaised>();
        if (raised == nullptr) continue;
        trails.push_back({.raised = *raised});
        trails.back().At(LatencyStep::kReadable) = entry.boottime_ns;
    }
    for (auto trail = trails.begin(); trail != trails.end(); ++trail) {
        // An engine detects once after each start, so all of it happens before the next record.
        const auto next = std::find_if(std::next(trail), trails.end(), [&](const auto& other) {
            return other.raised.engine == trail->raised.engine;
        });
        const int64_t until_ns = next == trails.end() ? kNever : next->At(LatencyStep::kReadable);
        trail->At(LatencyStep::kHotwordEnd) = HeardAt(facts, trail->raised.frame);
        FollowRecord(facts, until_ns, &*trail);
        FollowEvent(facts, until_ns, &*trail);
        FollowCapture(facts, until_ns, &*trail);
    }
    return trails;
}

std::vector<LatencyStatistics> Statistics(std::span<const DetectionTrail> trails) {
    std::vector<LatencyStatistics> all;
    for (const LatencyStep step : kLatencySteps) {
        std::vector<int64_t> times;
        for (const DetectionTrail& trail : trails) {
            if (const auto took = trail.Took(step)) times.push_back(*took);
        }
        if (!times.empty()) all.push_back(StatisticsOf(step, std::move(times)));
    }
    return all;
}

std::optional<LatencyStatistics> StatisticsBetween(std::span<const DetectionTrail> trails,
                                                   LatencyStep from, LatencyStep to) {
    std::vector<int64_t> times;
    for (const DetectionTrail& trail : trails) {
        if (trail.At(from) == 0 || trail.At(to) == 0) continue;
        times.push_back(trail.At(to) - trail.At(from));
    }
    if (times.empty()) return std::nullopt;
    return StatisticsOf(to, std::move(times));
}

}  // namespace sthal
