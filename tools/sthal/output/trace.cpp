#include "tools/sthal/output/trace.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>

#include "tools/sthal/findings/latency_breakdown.h"
#include "tools/sthal/findings/states.h"
#include "tools/sthal/output/markup.h"

namespace sthal {

namespace {

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

struct Event {
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
    explicit TraceWriter(int64_t start_ns) : start_ns_(start_ns) {}

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
        counters_[name].emplace_back(ns, frames);
    }

    std::string Write(const std::string& metadata) {
        text_ = "{\"displayTimeUnit\":\"ms\",\"otherData\":{" + metadata + "},\"traceEvents\":[\n";
        WriteGroup(Group::kAbove, "framework and audio service");
        WriteGroup(Group::kHal, "sound trigger HAL");
        WriteGroup(Group::kClients, "HAL clients");
        WriteGroup(Group::kDsp, "DSP");
        thread_ = 0;
        for (auto& [lane, events] : lanes_) WriteLane(lane, std::move(events));
        for (const auto& [name, samples] : counters_) {
            for (const auto& [ns, frames] : samples) WriteCounter(name, ns, frames);
        }
        text_ += "\n]}\n";
        return std::move(text_);
    }

  private:
    std::string Micros(int64_t ns) const {
        char text[40];
        (void)std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(ns) / 1e3);
        return text;
    }

    void Begin(const char* phase, const std::string& name, int64_t ns, Group group, int thread) {
        if (!text_.ends_with("[\n")) text_ += ",\n";
        text_ += std::string("{\"ph\":\"") + phase + "\",\"name\":" + JsonText(name) +
                 ",\"ts\":" + Micros(std::max<int64_t>(ns - start_ns_, 0)) +
                 ",\"pid\":" + std::to_string(static_cast<int>(group)) +
                 ",\"tid\":" + std::to_string(thread);
    }

    void WriteGroup(Group group, const char* name) {
        Begin("M", "process_name", start_ns_, group, 0);
        text_ += ",\"args\":{\"name\":" + JsonText(name) + "}}";
        Begin("M", "process_sort_index", start_ns_, group, 0);
        text_ += ",\"args\":{\"sort_index\":" + std::to_string(static_cast<int>(group)) + "}}";
    }

    void WriteLane(const LaneKey& lane, std::vector<Event> events) {
        // What holds another one comes first, and an arrow after the slice that it is tied to.
        std::ranges::stable_sort(events, [](const Event& a, const Event& b) {
            const auto place = [](const Event& event) {
                return std::pair(event.begin_ns, event.phase == 'X' ? -event.end_ns : 1);
            };
            return place(a) < place(b);
        });
        for (int row = 1; !events.empty(); ++row) {
            ++thread_;
            Begin("M", "thread_name", start_ns_, lane.group, thread_);
            const std::string suffix = row == 1 ? "" : " " + std::to_string(row);
            text_ += ",\"args\":{\"name\":" + JsonText(lane.name + suffix) + "}}";
            Begin("M", "thread_sort_index", start_ns_, lane.group, thread_);
            text_ += ",\"args\":{\"sort_index\":" + std::to_string(thread_) + "}}";
            events = WriteRow(lane.group, events, thread_);
        }
    }

    // Returns the slices that overlap others and go to a row of their own, arrows with them.
    std::vector<Event> WriteRow(Group group, const std::vector<Event>& events, int thread) {
        std::vector<Event> others;
        std::vector<int64_t> open;  // Ends of the slices around the current one.
        int64_t moved_ns = 0;       // The beginning of the latest slice that moved.
        for (const Event& event : events) {
            while (!open.empty() && open.back() <= event.begin_ns) open.pop_back();
            const bool is_slice = event.phase == 'X';
            const bool is_flow = event.phase != 'i' && !is_slice;
            if ((is_slice && !open.empty() && event.end_ns > open.back()) ||
                (is_flow && moved_ns == event.begin_ns)) {
                others.push_back(event);
                if (is_slice) moved_ns = event.begin_ns;
                continue;
            }
            if (is_slice) open.push_back(event.end_ns);
            WriteEvent(group, event, thread);
        }
        return others;
    }

    void WriteEvent(Group group, const Event& event, int thread) {
        const char phase[] = {event.phase, '\0'};
        Begin(phase, event.name, event.begin_ns, group, thread);
        text_ += R"(,"cat":"sthal")";
        switch (event.phase) {
            case 'X':
                text_ += ",\"dur\":" + Micros(event.end_ns - event.begin_ns);
                break;
            case 'i':
                text_ += R"(,"s":"t")";
                break;
            default:
                text_ += ",\"id\":" + std::to_string(event.flow) + R"(,"bp":"e")";
        }
        if (!event.detail.empty()) text_ += ",\"args\":{\"detail\":" + JsonText(event.detail) + "}";
        text_ += '}';
    }

    void WriteCounter(const std::string& name, int64_t ns, size_t frames) {
        Begin("C", name, ns, Group::kDsp, 0);
        text_ += ",\"args\":{\"frames\":" + std::to_string(frames) + "}}";
    }

    const int64_t start_ns_;
    std::map<LaneKey, std::vector<Event>> lanes_;
    std::map<std::string, std::vector<std::pair<int64_t, size_t>>> counters_;
    int thread_ = 0;  // The latest lane's row, as the viewer counts them.
    std::string text_;
};

std::string ResultDetail(const RecordedCall& call) {
    std::string text = call.detail;
    if (call.result) text += (text.empty() ? "-> " : " -> ") + std::to_string(*call.result);
    return text;
}

void AddCalls(const RunFacts& facts, TraceWriter& trace) {
    for (const RecordedText& step : facts.steps) {
        trace.Instant({Group::kAbove, "steps"}, step.ns, step.text);
    }
    for (const RecordedCall& call : facts.calls) {
        const bool is_framework = call.caller == RecordedCall::Caller::kFramework;
        trace.Slice({Group::kAbove, is_framework ? kFrameworkLane : "audio service"}, call.begin_ns,
                    call.end_ns, call.name, ResultDetail(call));
    }
    for (const RecordedEvent& event : facts.events) {
        trace.Slice({Group::kAbove, kCallbackLane}, event.entered_ns, event.returned_ns,
                    "event of model " + std::to_string(event.handle), event.text);
    }
}

int ControlThread(const RunFacts& facts) {
    for (const RecordedLogLine& line : facts.log) {
        if (line.text == "ControlThreadLoop: Enter") return line.thread;
    }
    return 0;
}

// From the record's reading to the callback, or to the last that the control thread says of it.
std::vector<std::pair<int64_t, int64_t>> ControlTurns(const RunFacts& facts, int control_thread,
                                                      const std::vector<Detection>& detections) {
    std::vector<std::pair<int64_t, int64_t>> turns;
    constexpr int64_t kOneTurnNs = 50'000'000;
    for (const Detection& detection : detections) {
        const int64_t begin_ns = detection.At(Step::kRead);
        if (begin_ns == 0) continue;
        int64_t end_ns = detection.At(Step::kCallback);
        const auto first = std::ranges::lower_bound(facts.log, begin_ns, {}, &RecordedLogLine::ns);
        for (auto line = first; line != facts.log.end() && detection.handle == 0; ++line) {
            if (line->ns > begin_ns + kOneTurnNs) break;
            if (line->thread == control_thread) end_ns = line->ns;
        }
        turns.emplace_back(begin_ns, std::max(begin_ns, end_ns));
    }
    return turns;
}

// Nobody sees the lock from outside. Known is what takes it for as long as it runs; where two of
// them overlap, the later one is taken to have waited for the earlier.
void AddLock(const RunFacts& facts, const std::vector<std::pair<int64_t, int64_t>>& turns,
             TraceWriter& trace) {
    std::vector<Event> holders;
    for (const RecordedCall& call : facts.calls) {
        if (call.name != "getProperties") {
            holders.push_back({call.begin_ns, call.end_ns, 'X', call.name, {}});
        }
    }
    for (const RecordedStream& stream : facts.streams) {
        const int64_t end_ns = std::max(stream.opened_ns, stream.begin_ns);
        holders.push_back({stream.begin_ns, end_ns, 'X', "open stream", {}});
    }
    for (const auto& [begin_ns, end_ns] : turns) {
        holders.push_back({begin_ns, end_ns, 'X', kControlLane, {}});
    }
    std::ranges::sort(holders, {}, &Event::begin_ns);
    int64_t free_ns = 0;
    for (const Event& holder : holders) {
        const int64_t begin_ns = std::max(holder.begin_ns, free_ns);
        if (begin_ns >= holder.end_ns) continue;
        trace.Slice({Group::kHal, kLockLane}, begin_ns, holder.end_ns, holder.name,
                    "at most so long: derived from what is seen outside the HAL");
        free_ns = holder.end_ns;
    }
}

void AddHal(const RunFacts& facts, const std::vector<Detection>& detections, TraceWriter& trace) {
    const int control_thread = ControlThread(facts);
    const auto turns = ControlTurns(facts, control_thread, detections);
    for (const auto& [begin_ns, end_ns] : turns) {
        trace.Slice({Group::kHal, kControlLane}, begin_ns, end_ns, "take a detection");
    }
    for (const RecordedLogLine& line : facts.log) {
        const bool is_control = control_thread != 0 && line.thread == control_thread;
        trace.Instant({Group::kHal, is_control ? kControlLane : "log"}, line.ns, line.text,
                      line.tag);
    }
    AddLock(facts, turns, trace);
    for (const RecordedStream& stream : facts.streams) {
        const LaneKey lane{Group::kHal, kStreamLane};
        const std::string where = "io handle " + std::to_string(stream.io_handle);
        trace.Slice(lane, stream.begin_ns, stream.opened_ns,
                    stream.error.empty() ? "open" : "open refused", where + " " + stream.error);
        for (const RecordedRead& read : stream.reads) {
            trace.Slice(lane, read.begin_ns, read.end_ns, read.is_silent ? "read, silence" : "read",
                        std::to_string(read.result) + " bytes, position " +
                                std::to_string(read.position));
        }
        if (stream.closed_ns != 0) trace.Instant(lane, stream.closed_ns, "close", where);
    }
}

// The node that an entry is about, or the part of the DSP.
std::string DspLane(const JournalEntry& entry) {
    for (const char* part : {"detector", "life", "microphone"}) {
        if (entry.source == part) return entry.source;
    }
    if (entry.source == "fault") return kFaultLane;
    if (entry.source != "pcm") return "node: " + entry.source;
    return entry.text.starts_with("hotword") ? "node: hotword audio" : "node: ambient audio";
}

void AddDsp(const RunFacts& facts, TraceWriter& trace) {
    for (const JournalEntry& entry : facts.journal) {
        trace.Instant({Group::kDsp, DspLane(entry)}, entry.boottime_ns, entry.text);
    }
    for (const StateSpan& span : StateSpans(facts)) {
        const bool is_client = span.subject.starts_with("client");
        trace.Slice({is_client ? Group::kClients : Group::kDsp, span.subject}, span.begin_ns,
                    span.end_ns, span.state);
    }
    for (size_t i = 0; i < facts.playbacks.size(); ++i) {
        const auto& heard = facts.playbacks[i].heard_ns;
        if (heard.empty()) continue;
        trace.Slice({Group::kDsp, "microphone"}, heard.front(), heard.back(),
                    "recording " + std::to_string(i + 1));
    }
    for (const BufferFill& fill : facts.fills) {
        trace.Counter(fill.ns, "hotword audio ready", fill.Of(PcmPort::kHotword));
        trace.Counter(fill.ns, "ambient audio ready", fill.Of(PcmPort::kAmbient));
    }
}

void AddArrows(const RunFacts& facts, const std::vector<Detection>& detections,
               TraceWriter& trace) {
    size_t id = 0;
    for (const Detection& detection : detections) {
        if (const int64_t instant_ns = detection.At(Step::kInstant); instant_ns != 0) {
            trace.Instant({Group::kDsp, "microphone"}, instant_ns,
                          Name(detection.engine) + ": what was detected ends here");
        }
        const LaneKey node{Group::kDsp, kNotificationNode};
        const int64_t readable_ns = detection.At(Step::kReadable);
        trace.Slice(node, readable_ns, detection.At(Step::kRead),
                    Name(detection.engine) + " record waits");
        if (detection.handle == 0) continue;
        trace.Flow(node, readable_ns, 's', ++id);
        const int64_t callback_ns = detection.At(Step::kCallback);
        // Without captured audio the arrow ends at the callback.
        const bool has_audio = detection.At(Step::kFirstAudio) != 0;
        trace.Flow({Group::kAbove, kCallbackLane}, callback_ns, has_audio ? 't' : 'f', id);
        if (!has_audio) continue;
        for (const RecordedRead& read : facts.streams[*detection.stream].reads) {
            if (read.end_ns != detection.At(Step::kFirstAudio)) continue;
            trace.Flow({Group::kHal, kStreamLane}, read.begin_ns, 'f', id);
            break;
        }
    }
}

}  // namespace

std::string TraceJson(const RunFacts& facts) {
    TraceWriter trace(facts.start_ns);
    const std::vector<Detection> detections = Detections(facts);
    AddCalls(facts, trace);
    AddHal(facts, detections, trace);
    AddDsp(facts, trace);
    AddArrows(facts, detections, trace);
    return trace.Write(
            "\"run\":" + JsonText(facts.title) + ",\"outcome\":" + JsonText(facts.verdict) +
            ",\"left out\":" + std::to_string(facts.left_out) +
            ",\"clock\":\"CLOCK_BOOTTIME since the run began\""
            ",\"HAL lock (derived)\":\"made from the calls and control thread turns that take it; "
            "the library reports no locks\"");
}

}  // namespace sthal
