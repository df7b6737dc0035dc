#pragma once

#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwCallback.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/framework_monitor/framework_monitor.h"
#include "tools/hal_calls.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::framework::FrameworkMonitor;
using ::framework::HalCalls;

/** Keeps the payloads of the events since the last Take(). */
class PayloadCallback final
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwCallback {
  public:
    ::ndk::ScopedAStatus modelUnloaded(int32_t) override { return ::ndk::ScopedAStatus::ok(); }
    ::ndk::ScopedAStatus phraseRecognitionCallback(
            int32_t,
            const ::aidl::android::media::soundtrigger::PhraseRecognitionEvent& event) override {
        return Keep(event.common.data);
    }
    ::ndk::ScopedAStatus recognitionCallback(
            int32_t, const ::aidl::android::media::soundtrigger::RecognitionEvent& event) override {
        return Keep(event.data);
    }

    std::vector<std::string> Take() {
        std::lock_guard lock(lock_);
        return std::exchange(payloads_, {});
    }

  private:
    ::ndk::ScopedAStatus Keep(const std::vector<uint8_t>& data) {
        std::lock_guard lock(lock_);
        payloads_.emplace_back(data.begin(), data.end());
        return ::ndk::ScopedAStatus::ok();
    }

    std::mutex lock_;
    std::vector<std::string> payloads_;
};

inline int LoadModel(FrameworkMonitor& monitor, SoundTriggerHalClient::SoundModelType type,
                     std::span<const uint8_t> bytes, const std::string& vendor_uuid,
                     std::shared_ptr<FrameworkMonitor::Callback> callback) {
    FrameworkMonitor::SoundModel model;
    model.type = type;
    model.vendorUuid = vendor_uuid;
    model.dataSize = static_cast<int32_t>(bytes.size());
    model.data.set(memfd_create("model", MFD_CLOEXEC));
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
              pwrite(model.data.get(), bytes.data(), bytes.size(), 0));
    int handle = -1;
    (void)monitor.LoadSoundModel(model, std::move(callback), &handle);
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
    const auto callback = ::ndk::SharedRefBase::make<PayloadCallback>();
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
        for (const std::string& got : callback->Take()) {
            EXPECT_EQ(payload, got) << "start " << k << " got an older detection";
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
