#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <utility>
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
struct RestartLoopParts {
    int rounds;
    // Raises a detection in the DSP if that is detecting.
    std::function<void()> trigger;
    // Called before each start. Returns the payload of what the DSP detects after the start.
    std::function<std::string()> next_payload;
    std::function<int(FrameworkMonitor&, std::shared_ptr<FrameworkMonitor::Callback>)> load;
    bool is_unloading = false;  // Unloads and loads instead of stopping.
};

/**
 * Starts and stops recognition again and again, with detections at all moments between and during
 * these calls. Each start must only get its own detection, and no event may come too late.
 */
class RestartLoop {
  public:
    RestartLoop(SoundTriggerHal* hal, RestartLoopParts parts)
        : parts_(std::move(parts)), monitor_(std::make_unique<HalCalls>(hal)) {}

    void Run() {
        handle_ = parts_.load(monitor_, callback_);
        ASSERT_GT(handle_, 0);
        MeasureDelivery();
        std::thread detections([this] { TriggerInEachRound(); });
        for (int k = 0; k < parts_.rounds && !::testing::Test::HasFailure(); ++k) {
            // The control thread pauses when a stop has taken back the record that woke it.
            // Nothing can collide during the pause, so this waits for its end.
            if (k % kRoundsBetweenDeliveries == 0) DeliverOne();
            CollideOnce(k);
        }
        round_ = kOver;
        round_.notify_one();
        detections.join();

        EXPECT_EQ(0, monitor_.UnloadSoundModel(handle_));
        EXPECT_TRUE(monitor_.violations().empty())
                << ::testing::PrintToString(monitor_.violations());
    }

  private:
    static constexpr int kOver = -2;
    static constexpr int kMoments = 997;  // In which a trigger or a stop may come.
    static constexpr int kRoundsBetweenDeliveries = 100;

    // What a delivery takes here and now says how far apart start, detection and stop may be to
    // meet. The shortest of many, since other programs run, too.
    void MeasureDelivery() {
        auto shortest = std::chrono::steady_clock::duration::max();
        for (int i = 0; i < 20; ++i) {
            const auto began = std::chrono::steady_clock::now();
            DeliverOne();
            shortest = std::min(shortest, std::chrono::steady_clock::now() - began);
        }
        longest_wait_ = 2 * shortest;
    }

    // A start that is given the time to get its detection.
    void DeliverOne() {
        const std::string payload = parts_.next_payload();
        EXPECT_EQ(0, monitor_.StartRecognition(handle_, 1, {}));
        parts_.trigger();
        EXPECT_TRUE(callback_->WaitForEvents(1)) << "the detection of a started model was lost";
        Stop();
        EXPECT_THAT(TakePayloads(), ::testing::ElementsAre(payload));
        LoadAgain();
    }

    // A start, a detection on the other thread and a stop, each in a moment of its own.
    void CollideOnce(int k) {
        const std::string payload = parts_.next_payload();
        round_ = k;
        round_.notify_one();
        EXPECT_EQ(0, monitor_.StartRecognition(handle_, 1, {}));
        Spin(k * 97 % kMoments);
        Stop();
        EXPECT_THAT(TakePayloads(), ::testing::Each(payload))
                << "start " << k << " got an older detection";
        LoadAgain();
    }

    // Goes through its moments at another speed than the stops, so that every pair occurs.
    void TriggerInEachRound() {
        for (int seen = -1;;) {
            round_.wait(seen);
            seen = round_;
            if (seen == kOver) return;
            Spin(seen * 61 % kMoments);
            parts_.trigger();
        }
    }

    // A sleep cannot be so short.
    void Spin(int moment) const {
        const auto until = std::chrono::steady_clock::now() + moment * longest_wait_ / kMoments;
        while (std::chrono::steady_clock::now() < until) {
        }
    }

    void Stop() {
        EXPECT_EQ(0, parts_.is_unloading ? monitor_.UnloadSoundModel(handle_)
                                         : monitor_.StopRecognition(handle_));
    }
    std::vector<std::string> TakePayloads() {
        std::vector<std::string> payloads;
        for (const auto& event : callback_->Take()) payloads.push_back(event.payload());
        return payloads;
    }
    void LoadAgain() {
        if (parts_.is_unloading) handle_ = parts_.load(monitor_, callback_);
    }

    const RestartLoopParts parts_;
    FrameworkMonitor monitor_;
    const std::shared_ptr<RecordingCallback> callback_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    int handle_ = -1;
    std::chrono::steady_clock::duration longest_wait_{};
    std::atomic<int> round_{-1};
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
