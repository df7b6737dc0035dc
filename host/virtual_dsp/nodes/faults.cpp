#include "host/virtual_dsp/nodes/faults.h"

#include <algorithm>
#include <utility>

#include "host/common/condition.h"

namespace virtual_dsp {
namespace {

// Not std::uniform_real_distribution, whose numbers differ between standard libraries.
double UnitInterval(std::mt19937_64& random) {
    return static_cast<double>(random() >> 11) * 0x1.0p-53;
}

bool Matches(const FaultRule& rule, NodeId node, FaultOperation operation,
             std::optional<uint16_t> command_id) {
    return rule.node == node && rule.operation == operation &&
           (!rule.command_id || rule.command_id == command_id);
}

}  // namespace

size_t FaultPlan::AddLocked(const FaultRule& rule) {
    // The odd constant keeps the sequences of neighbouring rules (and seeds) apart.
    const uint64_t seed = seed_ + (rules_.size() + 1) * 0x9E3779B97F4A7C15;
    rules_.push_back({rule, std::mt19937_64(seed)});
    return rules_.size() - 1;
}

size_t FaultPlan::Add(const FaultRule& rule) {
    std::lock_guard lock(lock_);
    return AddLocked(rule);
}

void FaultPlan::Load(const FaultScript& script) {
    {
        std::lock_guard lock(lock_);
        rules_.clear();
        seed_ = script.seed;
        ++generation_;
        for (const FaultRule& rule : script.rules) AddLocked(rule);
    }
    if (release_listener_) release_listener_();
}

void FaultPlan::Clear() {
    Load({});
}

uint64_t FaultPlan::Fired(size_t rule) const {
    std::lock_guard lock(lock_);
    return rule < rules_.size() ? rules_[rule].fired : 0;
}

bool FaultPlan::WaitUntilFired(size_t rule, uint64_t count,
                               std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::lock_guard lock(lock_);
    for (bool is_late = false;;) {
        if (rule < rules_.size() && rules_[rule].fired >= count) return true;
        if (is_late) return false;
        is_late = !host::WaitUntil(fired_, lock_, deadline);
    }
}

std::optional<Fault> FaultPlan::Next(NodeId node, FaultOperation operation,
                                     std::optional<uint16_t> command_id) {
    std::optional<Hit> hit;
    {
        std::lock_guard lock(lock_);
        hit = NextHit(node, operation, command_id);
    }
    if (!hit) return std::nullopt;
    if (hit_listener_) hit_listener_(hit->rule, hit->fired);
    return hit->fault;
}

std::optional<FaultPlan::Hit> FaultPlan::NextHit(NodeId node, FaultOperation operation,
                                                 std::optional<uint16_t> command_id) {
    for (RuleState& state : rules_) {
        const FaultRule& rule = state.rule;
        if (!Matches(rule, node, operation, command_id)) continue;
        if (++state.seen <= rule.after) continue;
        if (rule.times && state.fired >= *rule.times) continue;
        if (rule.chance < 1.0 && UnitInterval(state.random) >= rule.chance) continue;
        ++state.fired;
        fired_.notify_all();
        return Hit{{rule.effect, generation_}, rule, state.fired};
    }
    return std::nullopt;
}

uint64_t FaultPlan::generation() const {
    std::lock_guard lock(lock_);
    return generation_;
}

void FaultPlan::SetHitListener(HitListener listener) {
    hit_listener_ = std::move(listener);
}

void FaultPlan::SetReleaseListener(std::function<void()> listener) {
    release_listener_ = std::move(listener);
}

size_t ShortenedSize(const FaultEffect& effect, size_t asked) {
    if (effect.value >= 0) return std::min(asked, static_cast<size_t>(effect.value));
    const size_t fewer = static_cast<size_t>(-static_cast<int64_t>(effect.value));
    return asked - std::min(asked, fewer);
}

void Tear(const FaultEffect& effect, std::span<uint8_t> bytes) {
    const size_t count = std::min(bytes.size(), static_cast<size_t>(std::max(effect.value, 0)));
    const size_t first =
            effect.at ? static_cast<size_t>(std::max(*effect.at, 0)) : bytes.size() - count;
    for (size_t i = first; i < bytes.size() && i - first < count; ++i) {
        bytes[i] = static_cast<uint8_t>(~bytes[i]);
    }
}

}  // namespace virtual_dsp
