#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace virtual_dsp {

// One thing that the DSP was told, did or noticed.
struct JournalEntry {
    int64_t boottime_ns = 0;  // Filled in by the journal when 0.
    std::string source;  // "command", "model-data", "detector", "microphone", "pcm", "life", ...
    std::string text;    // For a person: "command 227 hotword start -> 0".

    // Of a command only.
    std::optional<uint32_t> command_id;  // Empty also when the command was too short to have one.
    std::vector<uint8_t> command_bytes;  // As received.
    int result = 0;                      // 0 or a negative errno.
};

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

    void Add(std::string source, std::string text);
    void Add(JournalEntry entry);

    // The two halves of Add(), for an owner that adds under a lock of its own and must not call
    // the listener there: Append() under that lock, Deliver() after it.
    void Append(JournalEntry entry);
    void Deliver();

    std::vector<JournalEntry> Snapshot() const;
    // How many entries the journal has forgotten because of its capacity since the last Clear().
    size_t Forgotten() const;
    // Forgets every entry; those the listener has yet to hear are still delivered.
    void Clear();

    // Called for every entry added from now on; empty to end it. A call that has already begun on
    // another thread may still be running when this returns.
    void SetListener(Listener listener);

  private:
    const std::function<int64_t()> boottime_ns_;
    const size_t capacity_;

    mutable std::mutex lock_;
    // All below: under lock_.
    std::deque<JournalEntry> entries_;
    std::deque<JournalEntry> undelivered_;
    size_t forgotten_ = 0;
    bool delivering_ = false;
    Listener listener_;
};

// CLOCK_BOOTTIME in nanoseconds.
int64_t BoottimeNow();

// The name of a command in words, e.g. "hotword start"; "unknown" for an id that the DSP does not
// know.
std::string CommandName(uint32_t id);

}  // namespace virtual_dsp
