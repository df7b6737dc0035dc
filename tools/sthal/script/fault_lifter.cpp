#include "tools/sthal/script/fault_lifter.h"

#include <chrono>
#include <utility>

#include "host/common/condition.h"

namespace sthal {

FaultLifter::FaultLifter(std::function<bool()> is_interrupted, std::function<void()> lift)
    : is_interrupted_(std::move(is_interrupted)),
      lift_(std::move(lift)),
      thread_(&FaultLifter::Run, this) {}

FaultLifter::~FaultLifter() {
    {
        std::lock_guard lock(lock_);
        is_ending_ = true;
        ended_.notify_one();
    }
    thread_.join();
}

bool FaultLifter::WaitForNextLook() {
    constexpr std::chrono::milliseconds kLook{100};
    const auto next = std::chrono::steady_clock::now() + kLook;
    std::lock_guard lock(lock_);
    while (!is_ending_ && host::WaitUntil(ended_, lock_, next)) {
    }
    return !is_ending_;
}

void FaultLifter::Run() {
    constexpr int kPatience = 10;  // Looks.
    for (int asked = 0; WaitForNextLook();) {
        asked = is_interrupted_() ? asked + 1 : 0;
        if (asked == kPatience) lift_();
    }
}

}  // namespace sthal
