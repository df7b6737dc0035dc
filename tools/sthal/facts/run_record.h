#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <variant>

#include "host/virtual_dsp/dsp/journal.h"
#include "tools/sthal/facts/run_facts.h"

namespace sthal {

/**
 * What a source of facts tells a run's record.
 *
 * Always: each Call, when it begins (`end_ns` is 0) and when it has returned; each Event, when the
 * callback is entered (`returned_ns` is 0) and when it returns; each Model that is handed to the
 * HAL; each stream with its reads and its closing. Times are set by the source, from the clock of
 * virtual_dsp::BoottimeNow().
 *
 * May be missing, where a phone cannot tell: the DSP's journal, buffer fills, wake locks,
 * HeardTimes and the record's time of an event. Findings then know less: without the journal no
 * latencies and no detections, without HeardTimes no missed hotwords.
 */
using Fact = std::variant<Call, Model, Event, BrokenRule, Stream, StreamRead, StreamClosed,
                          BufferFill, virtual_dsp::JournalEntry, PlayedRecording, WakeLocksHeld,
                          LogLine, Dump, StoryStep>;

/**
 * Takes the facts of a run as they come, and tells a listener of them, who shows them. Keeps them
 * after Enable(), so that a run of which nobody wants files costs no memory.
 *
 * Thread-safe. The listener is called by the threads that facts come from, without the record's
 * lock.
 */
class RunRecord {
  public:
    using Listener = std::function<void(const Fact& fact)>;

    // Of each list; what comes later is counted only.
    static constexpr size_t kCapacity = 400'000;

    // Times of the run's files count from `start_ns`.
    explicit RunRecord(Listener listener = {}, int64_t start_ns = virtual_dsp::BoottimeNow());

    int64_t start_ns() const { return start_ns_; }

    void Enable(std::string title) EXCLUDES(lock_);
    bool is_enabled() const { return enabled_; }

    // All but recordings and streams, which have functions of their own.
    void Add(Fact fact) EXCLUDES(lock_);
    // What the tool has to say of its own work.
    void AddRemark(std::string text) EXCLUDES(lock_);

    // Recordings are counted from 0 in the order in which they begin to be played.
    size_t AddRecording(PlayedRecording recording) EXCLUDES(lock_);
    // The microphones heard a recording up to frame `end`; see HeardTimes::Add().
    void AddHeard(size_t recording, uint64_t first_frame, size_t end, int64_t end_ns)
            EXCLUDES(lock_);

    // Streams are counted from 0 in the order of their opening.
    size_t AddStream(Stream stream) EXCLUDES(lock_);

    void SetVerdict(Verdict verdict) EXCLUDES(lock_);

    RunFacts Snapshot() const EXCLUDES(lock_);

  private:
    template <typename Kind>
    void Keep(std::vector<Kind>& list, Kind fact) REQUIRES(lock_);
    void KeepFact(Fact fact) REQUIRES(lock_);

    const int64_t start_ns_;
    const Listener listener_;
    std::atomic<bool> enabled_{false};
    mutable std::mutex lock_;
    RunFacts facts_ GUARDED_BY(lock_);
};

/** Notes a call into the HAL: its beginning when it is made, its end and result when told. */
class CallSpan {
  public:
    CallSpan(RunRecord& record, Call call);
    // The call has returned.
    void End(std::optional<int> result = std::nullopt);
    ~CallSpan();
    CallSpan(const CallSpan&) = delete;
    CallSpan& operator=(const CallSpan&) = delete;

    Call& call() { return call_; }

  private:
    RunRecord& record_;
    Call call_;
};

}  // namespace sthal
