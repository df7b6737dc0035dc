#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/framework_monitor/framework_monitor.h"
#include "tests/support/model.h"
#include "tests/support/recording_callback.h"
#include "tools/hal_calls.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::framework::FrameworkMonitor;
using ::framework::HalCalls;

inline int LoadModel(FrameworkMonitor& monitor, SoundTriggerHalClient::SoundModelType type,
                     std::span<const uint8_t> bytes, const std::string& vendor_uuid,
                     std::shared_ptr<FrameworkMonitor::Callback> callback) {
    int handle = -1;
    (void)monitor.LoadSoundModel(ModelOf(type, vendor_uuid, bytes), std::move(callback), &handle);
    return handle;
}

/** The differences between the loops. */
struct RestartLoop {
    int rounds;
    // Raises a detection in the DSP if that is detecting.
    std::function<void()> trigger;
    // Called before each start. Returns the payload of what the DSP detects after the start.
    std::function<std::string()> next_payload;
    // The longest delay before a trigger and before a stop.
    std::chrono::nanoseconds longest_wait;
    std::function<int(FrameworkMonitor&, std::shared_ptr<FrameworkMonitor::Callback>)> load;
    bool is_unloading = false;  // Unloads and loads instead of stopping.
};

/**
 * Starts and stops recognition again and again, with detections at all moments between and during
 * these calls. Each start must only get its own detection, and no event may come too late.
 */
inline void RunRestartLoop(SoundTriggerHal* hal, const RestartLoop& loop) {
    FrameworkMonitor monitor(std::make_unique<HalCalls>(hal));
    const auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
    int handle = loop.load(monitor, callback);
    ASSERT_GT(handle, 0);

    constexpr int kOver = -2;
    std::atomic<int> round{-1};
    // Waits for a different time in each round. A sleep cannot be so short.
    const auto spin = [&](int step) {
        const auto until = std::chrono::steady_clock::now() + step * loop.longest_wait / 997;
        while (std::chrono::steady_clock::now() < until) {
        }
    };
    // The two waits go through their ranges at different speeds, so that every pair of moments
    // occurs.
    std::thread detections([&] {
        for (int seen = -1;;) {
            round.wait(seen);
            seen = round;
            if (seen == kOver) return;
            spin(seen * 61 % 997);
            loop.trigger();
        }
    });

    int events = 0;
    for (int k = 0; k < loop.rounds && !::testing::Test::HasFailure(); ++k) {
        const std::string payload = loop.next_payload();
        round = k;
        round.notify_one();
        EXPECT_EQ(0, monitor.StartRecognition(handle, 1, {}));
        spin(k * 97 % 997);
        if (loop.is_unloading) {
            EXPECT_EQ(0, monitor.UnloadSoundModel(handle));
        } else {
            EXPECT_EQ(0, monitor.StopRecognition(handle));
        }
        for (const RecordingCallback::Event& event : callback->Take()) {
            EXPECT_EQ(payload, event.payload()) << "start " << k << " got an older detection";
            ++events;
        }
        if (loop.is_unloading) handle = loop.load(monitor, callback);
    }
    round = kOver;
    round.notify_one();
    detections.join();

    EXPECT_EQ(0, monitor.UnloadSoundModel(handle));
    EXPECT_TRUE(monitor.violations().empty()) << ::testing::PrintToString(monitor.violations());
    EXPECT_GT(events, 0) << "no detection was in time";
    EXPECT_LT(events, loop.rounds) << "no detection came too late";
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
