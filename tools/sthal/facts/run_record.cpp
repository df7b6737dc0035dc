#include "tools/sthal/facts/run_record.h"

#include <algorithm>
#include <utility>

namespace sthal {

namespace {

using virtual_dsp::BoottimeNow;
using virtual_dsp::CommandAnswered;
using virtual_dsp::JournalEntry;

template <typename Kind>
void SortByTime(std::vector<Kind>& facts, int64_t Kind::*time) {
    std::stable_sort(facts.begin(), facts.end(),
                     [time](const Kind& a, const Kind& b) { return a.*time < b.*time; });
}

}  // namespace

RunRecord::RunRecord(Listener listener, int64_t start_ns)
    : start_ns_(start_ns), listener_(std::move(listener)) {}

void RunRecord::Enable(std::string title) {
    std::lock_guard lock(lock_);
    facts_.start_ns = start_ns_;
    facts_.title = std::move(title);
    enabled_ = true;
}

void RunRecord::Add(Fact fact) {
    if (listener_) listener_(fact);
    if (!enabled_) return;
    std::lock_guard lock(lock_);
    KeepFact(std::move(fact));
}

void RunRecord::AddRemark(std::string text) {
    Add(StoryStep{BoottimeNow(), StoryStep::Kind::kRemark, std::move(text)});
}

template <typename Kind>
void RunRecord::Keep(std::vector<Kind>& list, Kind fact) {
    if (list.size() < kCapacity) {
        list.push_back(std::move(fact));
    } else {
        ++facts_.left_out;
    }
}

void RunRecord::KeepFact(Fact fact) {
    if (auto* const call = std::get_if<Call>(&fact)) {
        if (call->end_ns != 0) Keep(facts_.calls, std::move(*call));
    } else if (auto* const model = std::get_if<Model>(&fact)) {
        Keep(facts_.models, std::move(*model));
    } else if (auto* const event = std::get_if<Event>(&fact)) {
        if (event->returned_ns != 0) Keep(facts_.events, std::move(*event));
    } else if (auto* const broken = std::get_if<BrokenRule>(&fact)) {
        Keep(facts_.broken_rules, std::move(*broken));
    } else if (auto* const read = std::get_if<StreamRead>(&fact)) {
        if (read->stream < facts_.streams.size()) {
            Keep(facts_.streams[read->stream].reads, read->read);
        }
    } else if (auto* const closed = std::get_if<StreamClosed>(&fact)) {
        if (closed->stream < facts_.streams.size()) {
            facts_.streams[closed->stream].closed_ns = BoottimeNow();
        }
    } else if (auto* const fill = std::get_if<BufferFill>(&fact)) {
        Keep(facts_.fills, *fill);
    } else if (auto* const entry = std::get_if<JournalEntry>(&fact)) {
        // What the bytes mean, the other fields say.
        if (auto* const command = std::get_if<CommandAnswered>(&entry->what)) command->bytes = {};
        Keep(facts_.journal, std::move(*entry));
    } else if (auto* const line = std::get_if<LogLine>(&fact)) {
        Keep(facts_.log, std::move(*line));
    } else if (auto* const dump = std::get_if<Dump>(&fact)) {
        Keep(facts_.dumps, std::move(*dump));
    } else if (auto* const step = std::get_if<StoryStep>(&fact)) {
        Keep(facts_.steps, std::move(*step));
    } else if (auto* const held = std::get_if<WakeLocksHeld>(&fact)) {
        Keep(facts_.wake_locks, std::move(*held));
    }
}

size_t RunRecord::AddRecording(PlayedRecording played) {
    if (listener_) listener_(played);
    if (!enabled_) return 0;
    std::lock_guard lock(lock_);
    // A recording that is played over and over is kept once.
    const auto same = std::find_if(
            facts_.recordings.begin(), facts_.recordings.end(), [&](const PlayedRecording& other) {
                return other.recording->channels == played.recording->channels &&
                       other.recording->samples == played.recording->samples;
            });
    if (same != facts_.recordings.end()) played.recording = same->recording;
    const size_t index = facts_.recordings.size();  // Of one that is not kept, nobody has this.
    Keep(facts_.recordings, std::move(played));
    return index;
}

void RunRecord::AddHeard(size_t recording, uint64_t first_frame, size_t end, int64_t end_ns) {
    if (!enabled_) return;
    std::lock_guard lock(lock_);
    if (recording >= facts_.recordings.size()) return;
    facts_.recordings[recording].first_frame = first_frame;
    facts_.recordings[recording].heard.Add(end, end_ns);
}

size_t RunRecord::AddStream(Stream stream) {
    if (listener_) listener_(stream);
    std::lock_guard lock(lock_);
    const size_t index = facts_.streams.size();  // As above.
    if (enabled_) Keep(facts_.streams, std::move(stream));
    return index;
}

void RunRecord::SetVerdict(Verdict verdict) {
    std::lock_guard lock(lock_);
    facts_.verdict = std::move(verdict);
}

RunFacts RunRecord::Snapshot() const {
    std::lock_guard lock(lock_);
    RunFacts facts = facts_;
    facts.end_ns = BoottimeNow();
    // They come from several threads, and are stamped before they get here.
    SortByTime(facts.calls, &Call::begin_ns);
    SortByTime(facts.events, &Event::entered_ns);
    SortByTime(facts.fills, &BufferFill::ns);
    SortByTime(facts.journal, &JournalEntry::boottime_ns);
    SortByTime(facts.log, &LogLine::ns);
    SortByTime(facts.steps, &StoryStep::ns);
    facts.hal = ReadHalLog(facts.log);
    return facts;
}

CallSpan::CallSpan(RunRecord& record, Call call) : record_(record), call_(std::move(call)) {
    call_.begin_ns = BoottimeNow();
    record_.Add(call_);
}

void CallSpan::End(std::optional<int> result) {
    if (call_.end_ns != 0) return;
    call_.end_ns = BoottimeNow();
    call_.result = result;
    record_.Add(call_);
}

CallSpan::~CallSpan() {
    End();
}

}  // namespace sthal
