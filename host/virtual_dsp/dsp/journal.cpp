#include "host/virtual_dsp/dsp/journal.h"

#include <ctime>
#include <utility>

namespace virtual_dsp {

int64_t BoottimeNow() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

Journal::Journal(std::function<int64_t()> boottime_ns, size_t capacity)
    : boottime_ns_(boottime_ns ? std::move(boottime_ns) : BoottimeNow), capacity_(capacity) {}

void Journal::Add(std::string source, std::string text) {
    JournalEntry entry;
    entry.source = std::move(source);
    entry.text = std::move(text);
    Add(std::move(entry));
}

void Journal::Add(JournalEntry entry) {
    Append(std::move(entry));
    Deliver();
}

void Journal::Append(JournalEntry entry) {
    if (entry.boottime_ns == 0) entry.boottime_ns = boottime_ns_();
    std::lock_guard lock(lock_);
    if (listener_) undelivered_.push_back(entry);
    entries_.push_back(std::move(entry));
    if (entries_.size() > capacity_) {
        entries_.pop_front();
        ++forgotten_;
    }
}

void Journal::Deliver() {
    std::unique_lock lock(lock_);
    // One thread delivers at a time, so that the order is the journal's; it takes along what
    // others append meanwhile, which is why those need not wait.
    if (delivering_) return;
    delivering_ = true;
    while (!undelivered_.empty()) {
        const JournalEntry entry = std::move(undelivered_.front());
        undelivered_.pop_front();
        const Listener listener = listener_;
        lock.unlock();
        if (listener) listener(entry);
        lock.lock();
    }
    delivering_ = false;
}

std::vector<JournalEntry> Journal::Snapshot() const {
    std::lock_guard lock(lock_);
    return {entries_.begin(), entries_.end()};
}

size_t Journal::Forgotten() const {
    std::lock_guard lock(lock_);
    return forgotten_;
}

void Journal::Clear() {
    std::lock_guard lock(lock_);
    entries_.clear();
    forgotten_ = 0;
}

void Journal::SetListener(Listener listener) {
    std::lock_guard lock(lock_);
    listener_ = std::move(listener);
    if (!listener_) undelivered_.clear();
}

}  // namespace virtual_dsp
