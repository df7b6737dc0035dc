#include "tools/sthal/output/trace.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/states.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/output/step_texts.h"

namespace sthal {

namespace {

using nlohmann::ordered_json;
using virtual_dsp::JournalEntry;
using virtual_dsp::PcmPort;

constexpr char kLockLane[] = "HAL lock (derived)";
constexpr char kControlLane[] = "control thread";
constexpr char kStreamLane[] = "capture stream";
constexpr char kCallbackLane[] = "callbacks";
constexpr char kFrameworkLane[] = "framework calls";
constexpr char kFaultLane[] = "faults";
constexpr char kNotificationNode[] = "node: notification";

constexpr std::string_view kFirstLanes[] = {
        "steps",     kFrameworkLane, kCallbackLane, "audio service", kLockLane,  kControlLane,
        kStreamLane, "DSP",          "microphone",  "detector",      kFaultLane, kNotificationNode};

// A lane's place in the viewer: the process's number and its name.
enum class Group { kAbove = 1, kHal = 2, kClients = 3, kDsp = 4 };

struct LaneKey {
    Group group = Group::kHal;
    std::string name;

    // From the top of the viewer to the bottom.
    bool operator<(const LaneKey& other) const {
        return std::tuple(group, Rank(), name) < std::tuple(other.group, other.Rank(), other.name);
    }

  private:
    // Those that a person looks at first; the others follow by name.
    ptrdiff_t Rank() const {
        return std::ranges::find(kFirstLanes, name) - std::begin(kFirstLanes);
    }
};

struct TraceEvent {
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
    char phase = 'X';
    std::string name;
    std::string detail;  // Shown with the event.
    size_t flow = 0;
};

// Writes events into lanes; slices of one lane never overlap unless one holds the other.
class TraceWriter {
  public:
    explicit TraceWriter(int64_t start_ns) : start_ns_(start_ns) {
        WriteName("process", "framework and audio service", Group::kAbove, 0, 1);
        WriteName("process", "sound trigger HAL", Group::kHal, 0, 2);
        WriteName("process", "HAL clients", Group::kClients, 0, 3);
        WriteName("process", "DSP", Group::kDsp, 0, 4);
    }

    void Slice(const LaneKey& lane, int64_t begin_ns, int64_t end_ns, std::string name,
               std::string detail = {}) {
        if (begin_ns == 0) return;
        lanes_[lane].push_back(
                {begin_ns, std::max(begin_ns, end_ns), 'X', std::move(name), std::move(detail)});
    }
    void Instant(const LaneKey& lane, int64_t ns, std::string name, std::string detail = {}) {
        lanes_[lane].push_back({ns, ns, 'i', std::move(name), std::move(detail)});
    }
    // An arrow's beginning (s), stop (t) or end (f), at a slice that begins then.
    void Flow(const LaneKey& lane, int64_t ns, char phase, size_t id) {
        lanes_[lane].push_back({ns, ns, phase, "detection", {}, id});
    }
    void Counter(int64_t ns, const std::string& name, size_t frames) {
        WriteEvent('C', name, ns, Group::kDsp, 0, {{"args", {{"frames", frames}}}});
    }

    // One event a line, so that two traces can be compared.
    std::string Write(const ordered_json& metadata) {
        for (auto& [lane, events] : lanes_) WriteLane(lane, std::move(events));
        std::string text = Dumped({{"displayTimeUnit", "ms"}, {"otherData", metadata}});
        text.pop_back();  // The closing brace.
        return text + ",\"traceEvents\":[\n" + lines_ + "\n]}\n";
    }

  private:
    static std::string Dumped(const ordered_json& json) {
        return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    }

    // `more` are the members that events of this phase have beyond those of all events.
    void WriteEvent(char phase, const std::string& name, int64_t ns, Group group, int thread,
                    const ordered_json& more) {
        ordered_json event = {{"ph", std::string(1, phase)},
                              {"name", name},
                              {"ts", Micros(std::max<int64_t>(ns - start_ns_, 0))},
                              {"pid", static_cast<int>(group)},
                              {"tid", thread}};
        event.update(more);
        if (!lines_.empty()) lines_ += ",\n";
        lines_ += Dumped(event);
    }

    void WriteName(const std::string& what, const std::string& name, Group group, int thread,
                   int place) {
        WriteEvent('M', what + "_name", start_ns_, group, thread, {{"args", {{"name", name}}}});
        WriteEvent('M', what + "_sort_index", start_ns_, group, thread,
                   {{"args", {{"sort_index", place}}}});
    }

    void WriteLane(const LaneKey& lane, std::vector<TraceEvent> events) {
        // What holds another one comes first, and an arrow after the slice that it is tied to.
        std::ranges::stable_sort(events, {}, [](const TraceEvent& event) {
            return std::pair(event.begin_ns, event.phase == 'X' ? -event.end_ns : 1);
        });
        for (int row = 1; !events.empty(); ++row) {
            ++thread_;
            const std::string suffix = row == 1 ? "" : " " + std::to_string(row);
            WriteName("thread", lane.name + suffix, lane.group, thread_, thread_);
            events = WriteRow(lane.group, events, thread_);
        }
    }

    // Returns the slices that overlap others and go to a row of their own, arrows with them.
    std::vector<TraceEvent> WriteRow(Group group, const std::vector<TraceEvent>& events,
                                     int thread) {
        std::vector<TraceEvent> others;
        std::vector<int64_t> open;  // Ends of the slices around the current one.
        int64_t moved_ns = 0;       // The beginning of the latest slice that moved.
        for (const TraceEvent& event : events) {
            while (!open.empty() && open.back() <= event.begin_ns) open.pop_back();
            const bool is_slice = event.phase == 'X';
            const bool is_flow = !is_slice && event.phase != 'i';
            const bool overlaps = is_slice && !open.empty() && event.end_ns > open.back();
            if (overlaps) moved_ns = event.begin_ns;
            if (overlaps || (is_flow && moved_ns == event.begin_ns)) {
                others.push_back(event);
                continue;
            }
            if (is_slice) open.push_back(event.end_ns);
            WriteEvent(group, event, thread);
        }
        return others;
    }

    void WriteEvent(Group group, const TraceEvent& event, int thread) {
        ordered_json more = {{"cat", "sthal"}};
        if (event.phase == 'X') {
            more["dur"] = Micros(event.end_ns - event.begin_ns);
        } else if (event.phase == 'i') {
            more["s"] = "t";
        } else {
            more.update({{"id", event.flow}, {"bp", "e"}});
        }
        if (!event.detail.empty()) more["args"]["detail"] = event.detail;
        WriteEvent(event.phase, event.name, event.begin_ns, group, thread, more);
    }

    static double Micros(int64_t ns) { return static_cast<double>(ns) / 1e3; }

    const int64_t start_ns_;
    std::map<LaneKey, std::vector<TraceEvent>> lanes_;
    int thread_ = 0;  // The latest lane's row, as the viewer counts them.
    std::string lines_;
};

std::string ResultDetail(const Call& call) {
    std::string text = CallDetail(call);
    if (call.result) text += (text.empty() ? "-> " : " -> ") + std::to_string(*call.result);
    return text;
}

void AddCalls(const RunFacts& facts, TraceWriter& trace) {
    for (const DoneStep& step : StepsOf(facts)) {
        trace.Instant({Group::kAbove, "steps"}, step.ns, step.text);
    }
    for (const Call& call : facts.calls) {
        const char* const lane = IsOfFramework(call.operation) ? kFrameworkLane : "audio service";
        trace.Slice({Group::kAbove, lane}, call.begin_ns, call.end_ns, CallName(call.operation),
                    ResultDetail(call));
    }
    for (const Event& event : facts.events) {
        trace.Slice({Group::kAbove, kCallbackLane}, event.entered_ns, event.returned_ns,
                    "event of model " + std::to_string(event.handle), ToText(event));
    }
}

std::optional<int> ControlThread(const RunFacts& facts) {
    for (const HalFact& fact : facts.hal) {
        if (fact.As<ControlThreadStarted>() != nullptr) return fact.thread;
    }
    return std::nullopt;
}

// A time in which the HAL's lock is held.
struct Holding {
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
    const char* by = kControlLane;
};

// From a record's reading to the callback, or to the last that the control thread says of it.
std::vector<Holding> ControlTurns(const RunFacts& facts, std::optional<int> control_thread,
                                  const std::vector<DetectionTrail>& trails) {
    std::vector<Holding> turns;
    constexpr int64_t kOneTurnNs = 50'000'000;
    for (const DetectionTrail& trail : trails) {
        const int64_t begin_ns = trail.At(LatencyStep::kRead);
        if (begin_ns == 0) continue;
        int64_t end_ns = trail.At(LatencyStep::kCallback);
        const auto first = std::ranges::lower_bound(facts.log, begin_ns, {}, &LogLine::ns);
        for (auto line = first; line != facts.log.end() && trail.handle == 0; ++line) {
            if (line->ns > begin_ns + kOneTurnNs) break;
            if (line->thread == control_thread) end_ns = line->ns;
        }
        turns.push_back({begin_ns, std::max(begin_ns, end_ns)});
    }
    return turns;
}

// Nobody sees the lock from outside. Known is what takes it for as long as it runs; where two of
// them overlap, the later one is taken to have waited for the earlier.
void AddLock(const RunFacts& facts, std::vector<Holding> holdings, TraceWriter& trace) {
    for (const Call& call : facts.calls) {
        if (call.operation == Operation::kGetProperties) continue;
        holdings.push_back({call.begin_ns, call.end_ns, CallName(call.operation)});
    }
    for (const Stream& stream : facts.streams) {
        holdings.push_back({stream.begin_ns, stream.opened_ns, "open stream"});
    }
    std::ranges::sort(holdings, {}, &Holding::begin_ns);
    int64_t free_ns = 0;
    for (const Holding& holding : holdings) {
        const int64_t begin_ns = std::max(holding.begin_ns, free_ns);
        if (begin_ns >= holding.end_ns) continue;
        trace.Slice({Group::kHal, kLockLane}, begin_ns, holding.end_ns, holding.by,
                    "at most so long: derived from what is seen outside the HAL");
        free_ns = holding.end_ns;
    }
}

void AddStream(const Stream& stream, TraceWriter& trace) {
    const LaneKey lane{Group::kHal, kStreamLane};
    const std::string where = "io handle " + std::to_string(stream.io_handle);
    const bool is_open = stream.refusal == StreamRefusal::kNone;
    trace.Slice(lane, stream.begin_ns, stream.opened_ns, is_open ? "open" : "open refused",
                where + " " + RefusalText(stream));
    for (const Read& read : stream.reads) {
        trace.Slice(
                lane, read.begin_ns, read.end_ns, read.is_silent ? "read, silence" : "read",
                std::to_string(read.result) + " bytes, position " + std::to_string(read.position));
    }
    if (stream.closed_ns != 0) trace.Instant(lane, stream.closed_ns, "close", where);
}

void AddHal(const RunFacts& facts, const std::vector<DetectionTrail>& trails, TraceWriter& trace) {
    const std::optional<int> control_thread = ControlThread(facts);
    const std::vector<Holding> turns = ControlTurns(facts, control_thread, trails);
    for (const Holding& turn : turns) {
        trace.Slice({Group::kHal, kControlLane}, turn.begin_ns, turn.end_ns, "take a detection");
    }
    for (const LogLine& line : facts.log) {
        const char* const lane = line.thread == control_thread ? kControlLane : "log";
        trace.Instant({Group::kHal, lane}, line.ns, line.text, line.tag);
    }
    AddLock(facts, turns, trace);
    for (const Stream& stream : facts.streams) AddStream(stream, trace);
}

// The port of an entry about a capture's audio.
std::optional<PcmPort> PortOf(const JournalEntry& entry) {
    using namespace virtual_dsp;
    if (const auto* const ended = entry.As<CaptureEnded>()) return PortOf(ended->engine);
    if (const auto* const replaced = entry.As<CaptureReplaced>()) return PortOf(replaced->engine);
    if (const auto* const read = entry.As<CaptureReadBegun>()) return read->port;
    if (const auto* const overrun = entry.As<CaptureOverrun>()) return overrun->port;
    return std::nullopt;
}

// The node that an entry is about, or the part of the DSP.
std::string DspLane(const JournalEntry& entry) {
    if (const auto port = PortOf(entry)) return "node: " + Name(*port) + " audio";
    if (entry.As<virtual_dsp::FaultHit>() != nullptr) return kFaultLane;
    const bool is_part = entry.As<virtual_dsp::DetectionRaised>() != nullptr ||
                         entry.As<virtual_dsp::PowerChanged>() != nullptr ||
                         entry.As<virtual_dsp::MicrophonePaused>() != nullptr;
    return (is_part ? "" : "node: ") + std::string(SourceName(entry));
}

void AddDsp(const RunFacts& facts, TraceWriter& trace) {
    for (const JournalEntry& entry : facts.journal) {
        trace.Instant({Group::kDsp, DspLane(entry)}, entry.boottime_ns, ToText(entry));
    }
    for (const StateSpan& span : StateSpans(facts)) {
        const bool is_client = span.subject.kind == Subject::Kind::kClient;
        trace.Slice({is_client ? Group::kClients : Group::kDsp, Name(span.subject)}, span.begin_ns,
                    span.end_ns, Name(span.state));
    }
    for (size_t i = 0; i < facts.recordings.size(); ++i) {
        const HeardTimes& heard = facts.recordings[i].heard;
        if (heard.frames() == 0) continue;
        trace.Slice({Group::kDsp, "microphone"}, heard.At(0), heard.At(heard.frames() - 1),
                    "recording " + std::to_string(i + 1));
    }
    for (const BufferFill& fill : facts.fills) {
        trace.Counter(fill.ns, "hotword audio ready", fill.Of(PcmPort::kHotword));
        trace.Counter(fill.ns, "ambient audio ready", fill.Of(PcmPort::kAmbient));
    }
}

void AddArrows(const RunFacts& facts, const std::vector<DetectionTrail>& trails,
               TraceWriter& trace) {
    size_t id = 0;
    for (const DetectionTrail& trail : trails) {
        const std::string engine = Name(trail.raised.engine);
        if (const int64_t ended_ns = trail.At(LatencyStep::kHotwordEnd); ended_ns != 0) {
            trace.Instant({Group::kDsp, "microphone"}, ended_ns,
                          engine + ": what was detected ends here");
        }
        const LaneKey node{Group::kDsp, kNotificationNode};
        const int64_t readable_ns = trail.At(LatencyStep::kReadable);
        trace.Slice(node, readable_ns, trail.At(LatencyStep::kRead), engine + " record waits");
        if (trail.handle == 0) continue;
        trace.Flow(node, readable_ns, 's', ++id);
        // Without captured audio the arrow ends at the callback.
        const int64_t audio_ns = trail.At(LatencyStep::kFirstAudio);
        trace.Flow({Group::kAbove, kCallbackLane}, trail.At(LatencyStep::kCallback),
                   audio_ns != 0 ? 't' : 'f', id);
        if (audio_ns == 0) continue;
        const std::vector<Read>& reads = facts.streams[*trail.stream].reads;
        const auto read = std::ranges::find(reads, audio_ns, &Read::end_ns);
        if (read != reads.end()) trace.Flow({Group::kHal, kStreamLane}, read->begin_ns, 'f', id);
    }
}

}  // namespace

std::string TraceJson(const RunFacts& facts) {
    TraceWriter trace(facts.start_ns);
    const std::vector<DetectionTrail> trails = DetectionTrails(facts);
    AddCalls(facts, trace);
    AddHal(facts, trails, trace);
    AddDsp(facts, trace);
    AddArrows(facts, trails, trace);
    return trace.Write({{"run", facts.title},
                        {"outcome", VerdictText(facts.verdict)},
                        {"left out", facts.left_out},
                        {"clock", "CLOCK_BOOTTIME since the run began"},
                        {kLockLane,
                         "made from the calls and control thread turns that take it; the library "
                         "reports no locks"}});
}

}  // namespace sthal
