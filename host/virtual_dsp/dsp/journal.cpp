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

void Journal::Add(JournalEntry::What what) {
    Append(std::move(what));
    Deliver();
}

void Journal::Append(JournalEntry::What what) {
    JournalEntry entry{boottime_ns_(), std::move(what)};
    std::lock_guard lock(lock_);
    if (listener_) undelivered_.push_back(entry);
    entries_.push_back(std::move(entry));
    if (entries_.size() > capacity_) {
        entries_.pop_front();
        ++forgotten_;
    }
}

void Journal::Deliver() {
    // One thread delivers at a time, so that the order is the journal's. It also delivers what
    // others append meanwhile, so those need not wait.
    if (!BeginDelivery()) return;
    while (const auto next = NextDelivery()) {
        if (next->listener) next->listener(next->entry);
    }
}

bool Journal::BeginDelivery() {
    std::lock_guard lock(lock_);
    return !std::exchange(delivering_, true);
}

std::optional<Journal::Delivery> Journal::NextDelivery() {
    std::lock_guard lock(lock_);
    if (undelivered_.empty()) {
        delivering_ = false;
        return std::nullopt;
    }
    Delivery next{std::move(undelivered_.front()), listener_};
    undelivered_.pop_front();
    return next;
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
