// A framework that answers an event from inside its callback, while another thread unloads the very
// model. Whatever comes first: no dead end, no event too late, and the model is gone in the end.
#include <android-base/logging.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <functional>
#include <future>
#include <thread>

#include "tests/contract/restart_loop.h"
#include "tests/support/recording_callback.h"
#include "tests/support/simple_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using SoundModelType = SoundTriggerHalClient::SoundModelType;

constexpr int kRounds = 50;

struct Answer {
    const char* name;
    void (*give)(SoundTriggerHal&, FrameworkMonitor&, int handle);
};

void PrintTo(const Answer& answer, std::ostream* out) {
    *out << answer.name;
}

void LoadAnother(SoundTriggerHal&, FrameworkMonitor& monitor, int) {
    const std::vector<uint8_t> bytes = {4, 5};
    const int handle = LoadModel(monitor, SoundModelType::GENERIC, bytes, "another", nullptr);
    EXPECT_GT(handle, 0);
    EXPECT_EQ(0, monitor.UnloadSoundModel(handle));
}

const Answer kAnswers[] = {
        {"Unload", [](SoundTriggerHal&, FrameworkMonitor& monitor,
                      int handle) { (void)monitor.UnloadSoundModel(handle); }},
        {"Load", LoadAnother},
        {"Start", [](SoundTriggerHal&, FrameworkMonitor& monitor,
                     int handle) { (void)monitor.StartRecognition(handle, 2, {}); }},
        {"Stop", [](SoundTriggerHal&, FrameworkMonitor& monitor,
                    int handle) { (void)monitor.StopRecognition(handle); }},
        {"Force", [](SoundTriggerHal&, FrameworkMonitor& monitor,
                     int handle) { (void)monitor.ForceRecognitionEvent(handle); }},
        {"Dump", [](SoundTriggerHal& hal, FrameworkMonitor&,
                    int) { hal.Dump(SoundTriggerHal::DumpsysInfo(-1)); }},
        {"Capture",
         [](SoundTriggerHal& hal, FrameworkMonitor&, int) {
             char audio[2048];
             (void)hal.StartBufferingByIoHandle(1, false);
             (void)hal.ReadBuffer(1, audio, sizeof(audio), 1);
         }},
};

class CallbackTest : public ::testing::TestWithParam<Answer> {
  protected:
    CallbackTest() {
        ::android::base::SetMinimumLogSeverity(::android::base::FATAL);
        hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal(dsp_.MakeAdapter());
        monitor_ = std::make_unique<FrameworkMonitor>(std::make_unique<HalCalls>(hal_.get()));
        (void)hal_->Initialize();
        hal_->OnSoundCardStateChanged(true);
    }
    ~CallbackTest() override {
        hal_.reset();
        ::android::base::SetMinimumLogSeverity(::android::base::INFO);
    }

    // Has a started model detect and a thread unload it; `before_answer` is called in the callback,
    // `before_unload` on the thread.
    void UnloadWhileAnswering(const std::function<void()>& before_answer,
                              const std::function<void()>& before_unload) {
        // Shared: the callback may still be in its last line when the test goes on.
        const auto answered = std::make_shared<std::promise<void>>();
        const auto callback =
                ::ndk::SharedRefBase::make<RecordingCallback>([&, answered](int handle) {
                    before_answer();
                    GetParam().give(*hal_, *monitor_, handle);
                    answered->set_value();
                });
        const std::vector<uint8_t> bytes = {1, 2, 3};
        const int handle = LoadModel(*monitor_, SoundModelType::KEYPHRASE, bytes, "one", callback);
        ASSERT_EQ(0, monitor_->StartRecognition(handle, 1, {}));
        std::thread unloading([&] {
            before_unload();
            (void)monitor_->UnloadSoundModel(handle);
        });
        dsp_.With([](SimpleDsp& dsp) { dsp.Detect(1); });
        auto has_answered = answered->get_future();
        // Nothing else can be done about a dead end: the threads hold what the end needs.
        if (has_answered.wait_for(kDeadline) != std::future_status::ready) abort();
        unloading.join();
        EXPECT_EQ(-EINVAL, monitor_->UnloadSoundModel(handle)) << "the model is still there";
        EXPECT_TRUE(monitor_->violations().empty())
                << ::testing::PrintToString(monitor_->violations());
    }

    SharedSimpleDsp dsp_;
    std::unique_ptr<FrameworkMonitor> monitor_;
    std::unique_ptr<SoundTriggerHal> hal_;
};

TEST_P(CallbackTest, AnswersWhileTheUnloadWaitsForTheCallback) {
    std::promise<void> in_callback;
    UnloadWhileAnswering(
            [&] {
                in_callback.set_value();
                const auto is_loaded = [](SimpleDsp& dsp) { return dsp.view().hotword.model != 0; };
                while (dsp_.With(is_loaded)) std::this_thread::yield();
            },
            [&] { in_callback.get_future().wait(); });
}

TEST_P(CallbackTest, AnswersInARaceWithTheUnload) {
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        std::barrier both(2);
        UnloadWhileAnswering([&] { both.arrive_and_wait(); }, [&] { both.arrive_and_wait(); });
    }
}

INSTANTIATE_TEST_SUITE_P(All, CallbackTest, ::testing::ValuesIn(kAnswers),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
