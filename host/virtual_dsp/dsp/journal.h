#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/virtual_dsp/dsp/journal_entry.h"

namespace virtual_dsp {

// What happened to a DSP, in order. Keeps the latest `capacity` entries and counts the rest, so
// that a long run cannot eat the memory.
//
// Thread-safe. The listener is never called with the journal's lock held, and hears the entries
// one at a time in the order of the journal, whichever threads add them.
class Journal {
  public:
    using Listener = std::function<void(const JournalEntry&)>;
    static constexpr size_t kDefaultCapacity = 65536;

    // `boottime_ns` stamps the entries; CLOCK_BOOTTIME when empty.
    explicit Journal(std::function<int64_t()> boottime_ns = {}, size_t capacity = kDefaultCapacity);

    void Add(JournalEntry::What what) EXCLUDES(lock_);

    // The two halves of Add(), for an owner that adds under a lock of its own and must not call
    // the listener there: Append() under that lock, Deliver() after it.
    void Append(JournalEntry::What what) EXCLUDES(lock_);
    void Deliver() EXCLUDES(lock_);

    std::vector<JournalEntry> Snapshot() const EXCLUDES(lock_);
    // How many entries the journal has forgotten because of its capacity since the last Clear().
    size_t Forgotten() const EXCLUDES(lock_);
    // Forgets every entry; those the listener has yet to hear are still delivered.
    void Clear() EXCLUDES(lock_);

    // Called for every entry added from now on; empty to end it. A call that has already begun on
    // another thread may still be running when this returns.
    void SetListener(Listener listener) EXCLUDES(lock_);

  private:
    struct Delivery {
        JournalEntry entry;
        Listener listener;
    };
    // Starts to deliver unless another thread does already.
    bool BeginDelivery() EXCLUDES(lock_);
    // What to deliver next. Ends the delivery when there is nothing left.
    std::optional<Delivery> NextDelivery() EXCLUDES(lock_);

    const std::function<int64_t()> boottime_ns_;
    const size_t capacity_;

    mutable std::mutex lock_;
    std::deque<JournalEntry> entries_ GUARDED_BY(lock_);
    std::deque<JournalEntry> undelivered_ GUARDED_BY(lock_);
    size_t forgotten_ GUARDED_BY(lock_) = 0;
    bool delivering_ GUARDED_BY(lock_) = false;
    Listener listener_ GUARDED_BY(lock_);
};

// CLOCK_BOOTTIME in nanoseconds.
int64_t BoottimeNow();

}  // namespace virtual_dsp
