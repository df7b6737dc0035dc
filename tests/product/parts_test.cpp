// Parts of the HAL by themselves, where no test of the whole would see a fault.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>

#include "audio/hal/aidl/soundtrigger/event_delivery.h"
#include "audio/hal/aidl/soundtrigger/wake_up_pipe.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::steady_clock;

TEST(WakeUpPipeTest, FullPipeRefusesAMessageAndLosesNone) {
    WakeUpPipe pipe;
    ASSERT_TRUE(pipe.Open());
    int messages = 0;
    int error = 0;
    while ((error = pipe.Wake()) == 0) ++messages;
    EXPECT_EQ(EAGAIN, error);
    for (; messages > 0; --messages) ASSERT_EQ(WakeUpPipe::kMessageBytes, pipe.TakeMessage());
    EXPECT_GE(0, pipe.TakeMessage());
}

TEST(EventDeliveryTest, DropIsForThePendingEventOfThatModelAlone) {
    EventDelivery delivery;
    delivery.Begin(1);
    delivery.Drop(2);
    EXPECT_TRUE(delivery.Claim());
    delivery.End();
    delivery.Begin(1);
    delivery.Drop(1);
    EXPECT_FALSE(delivery.Claim());
}

TEST(EventDeliveryTest, WaitIsForTheCallbackOfThatModelAloneAndNotWithoutEnd) {
    constexpr std::chrono::milliseconds kTimeout(500);
    EventDelivery delivery;
    std::mutex lock;
    // The shortest of some: other programs run, too.
    const auto wait = [&](int handle, int times) {
        auto shortest = steady_clock::duration::max();
        for (int i = 0; i < times; ++i) {
            const auto start = steady_clock::now();
            delivery.WaitForCallback(handle, lock);
            shortest = std::min(shortest, steady_clock::now() - start);
        }
        return shortest;
    };
    std::thread([&] {
        const std::lock_guard locked(lock);
        delivery.Begin(1);
        EXPECT_TRUE(delivery.Claim());
        EXPECT_LT(wait(1, 5), kTimeout) << "the callback itself waits";
    }).join();
    lock.lock();
    EXPECT_LT(wait(2, 5), kTimeout) << "waits for another model";
    EXPECT_GE(wait(1, 1), kTimeout) << "nobody ended the callback";
    std::thread ending([&] {
        const std::lock_guard locked(lock);
        delivery.End();
    });
    delivery.WaitForCallback(1, lock);
    EXPECT_FALSE(delivery);
    lock.unlock();
    ending.join();
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
