#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/virtual_dsp/nodes/node_table.h"

namespace virtual_dsp {

// What a rule watches. `kReply` is the DSP's answer to a command, whichever call fetches it.
enum class FaultOperation { kOpen, kRead, kWrite, kPoll, kReply };

// What a fault does to a call.
struct FaultEffect {
    enum class Kind {
        kErrno,  // Fails with errno `value`; nothing is read, written or carried out.
        kShort,  // At most `value` bytes pass; a negative value: that many fewer than asked for.
        kTorn,   // `value` bytes arrive inverted, from byte `at` on (the last ones without `at`).
        kDelay,  // Happens `value` milliseconds late.
        kHang,   // Does not happen until the plan is cleared or the DSP goes down.
        kReady,  // Of a poll: reports something to read, whether or not there is.
    };
    Kind kind = Kind::kErrno;
    int value = 0;
    std::optional<int> at;

    bool operator==(const FaultEffect&) const = default;
};

struct FaultRule {
    NodeId node = NodeId::kCommand;
    FaultOperation operation = FaultOperation::kOpen;
    std::optional<uint16_t> command_id;  // Only calls that concern this command.
    uint32_t after = 0;                  // Lets this many matching calls pass first.
    std::optional<uint32_t> times;       // Fires this many times; always when empty.
    double chance = 1.0;                 // Probability that a matching call is hit.
    FaultEffect effect;

    bool operator==(const FaultRule&) const = default;
};

struct FaultScript {
    uint64_t seed = 0;
    std::vector<FaultRule> rules;

    bool operator==(const FaultScript&) const = default;
};

// A fault that a call has met. It is in force for as long as the plan has this generation.
struct Fault {
    FaultEffect effect;
    uint64_t generation = 0;
};

// Which calls on the board's nodes go wrong, and how.
//
// The rules are checked in order. The first that fires decides, and the rules after it do not see
// the call. Each rule has its own random numbers, made from the seed and the rule's place. So the
// same seed and the same calls on its node give the same faults, whatever happens on other nodes.
//
// Thread-safe. The listeners are called without the lock.
class FaultPlan {
  public:
    // Gets the rule that has just hit a call, and how many calls the rule has hit by now.
    using HitListener = std::function<void(const FaultRule& rule, uint64_t fired)>;

    // Adds a rule and returns its number, counted from 0 since the last Clear() or Load().
    size_t Add(const FaultRule& rule) EXCLUDES(lock_);
    // Replaces the whole plan.
    void Load(const FaultScript& script) EXCLUDES(lock_);
    // Drops the rules. Every call that they hang or delay goes on.
    void Clear() EXCLUDES(lock_);

    // How often a rule has fired; 0 for a number that is not in use.
    uint64_t Fired(size_t rule) const EXCLUDES(lock_);
    // Waits until the rule has fired `count` times; false when that takes longer than `timeout`.
    bool WaitUntilFired(size_t rule, uint64_t count, std::chrono::milliseconds timeout) const
            EXCLUDES(lock_);

    // --- for the nodes ------------------------------------------------------------------------
    // Counts one call and returns the fault that it meets, if any.
    std::optional<Fault> Next(NodeId node, FaultOperation operation,
                              std::optional<uint16_t> command_id = std::nullopt) EXCLUDES(lock_);
    // Grows with every Clear() and Load().
    uint64_t generation() const EXCLUDES(lock_);
    // Set once, before other threads use the plan.
    void SetReleaseListener(std::function<void()> listener);

    // The listener runs on the thread that serves the nodes. Set once, before there are rules.
    void SetHitListener(HitListener listener);

  private:
    struct RuleState {
        FaultRule rule;
        std::mt19937_64 random;
        uint64_t seen = 0;
        uint64_t fired = 0;
    };

    // A fault that a call meets, and what the listener hears of it.
    struct Hit {
        Fault fault;
        FaultRule rule;
        uint64_t fired;
    };

    size_t AddLocked(const FaultRule& rule) REQUIRES(lock_);
    std::optional<Hit> NextHit(NodeId node, FaultOperation operation,
                               std::optional<uint16_t> command_id) REQUIRES(lock_);

    // Set before a second thread uses the plan.
    std::function<void()> release_listener_;
    HitListener hit_listener_;

    mutable std::mutex lock_;
    mutable std::condition_variable fired_;
    std::vector<RuleState> rules_ GUARDED_BY(lock_);
    uint64_t seed_ GUARDED_BY(lock_) = 0;
    uint64_t generation_ GUARDED_BY(lock_) = 0;
};

// How many bytes of a transfer of `asked` bytes a kShort effect lets through.
size_t ShortenedSize(const FaultEffect& effect, size_t asked);
// Inverts the bytes that a kTorn effect names, as far as they exist.
void Tear(const FaultEffect& effect, std::span<uint8_t> bytes);

}  // namespace virtual_dsp
