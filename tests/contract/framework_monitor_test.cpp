// The monitor itself: a fake HAL breaks each rule, and keeps them at their edge.
#include "host/framework_monitor/framework_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <future>
#include <thread>
#include <utility>

#include "tests/contract/restart_loop.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using Rule = FrameworkMonitor::Rule;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

/** Grants everything, and calls back whenever a test wants it to. */
class FakeHal final : public ::framework::FrameworkCalls {
  public:
    int LoadSoundModel(const SoundModel&, std::shared_ptr<Callback> callback,
                       int* handle) override {
        callback_ = std::move(callback);
        *handle = 1;
        return 0;
    }
    int UnloadSoundModel(int) override { return 0; }
    int StartRecognition(int handle, int, const RecognitionConfig&) override {
        if (before_start_) std::exchange(before_start_, {})();
        return handle == 1 ? start_result_ : -EINVAL;
    }
    int StopRecognition(int handle) override {
        if (before_stop_) std::exchange(before_stop_, {})();
        return handle == 1 ? 0 : -EINVAL;
    }
    int ForceRecognitionEvent(int) override { return 0; }
    void PassThroughLock() override { std::lock_guard lock(lock_); }

    void Detect(int handle) { (void)callback_->recognitionCallback(handle, {}); }

    std::mutex lock_;
    int start_result_ = 0;
    // Called once, within the next start or stop, before it takes effect.
    std::function<void()> before_start_;
    std::function<void()> before_stop_;

  private:
    std::shared_ptr<Callback> callback_;
};

class FrameworkMonitorTest : public ::testing::Test {
  protected:
    FrameworkMonitorTest() { Load(); }

    void Load() {
        const std::vector<uint8_t> bytes = {1};
        ASSERT_EQ(1, LoadModel(monitor_, SoundTriggerHalClient::SoundModelType::GENERIC, bytes,
                               "model", ::ndk::SharedRefBase::make<RecordingCallback>()));
    }
    void Start() { ASSERT_EQ(0, monitor_.StartRecognition(1, 0, {})); }
    void RestartDsp() {
        monitor_.BeginDspRestart();
        monitor_.EndDspRestart();
    }

    std::vector<Rule> Broken() const {
        std::vector<Rule> rules;
        for (const auto& violation : monitor_.violations()) rules.push_back(violation.rule);
        return rules;
    }

    std::unique_ptr<FakeHal> owned_ = std::make_unique<FakeHal>();
    FakeHal* const hal_ = owned_.get();
    FrameworkMonitor monitor_{std::move(owned_), std::chrono::milliseconds(200)};
};

TEST_F(FrameworkMonitorTest, AnEventAfterEachStartBreaksNothing) {
    for (int round = 0; round < 2; ++round) {
        Start();
        hal_->Detect(1);
    }
    Start();
    hal_->before_stop_ = [this] { hal_->Detect(1); };
    EXPECT_EQ(0, monitor_.StopRecognition(1)) << "an event beside the stop is still in time";

    EXPECT_THAT(monitor_.violations(), ElementsAre());
}

TEST_F(FrameworkMonitorTest, EventsOutOfPlaceBreakTheirRule) {
    hal_->Detect(2);
    hal_->Detect(1);
    hal_->start_result_ = -EINVAL;
    EXPECT_EQ(-EINVAL, monitor_.StartRecognition(1, 0, {}));
    hal_->Detect(1);
    hal_->start_result_ = 0;
    Start();
    hal_->Detect(1);
    hal_->Detect(1);
    RestartDsp();
    hal_->Detect(1);
    EXPECT_EQ(0, monitor_.StopRecognition(1));
    hal_->Detect(1);
    EXPECT_EQ(0, monitor_.UnloadSoundModel(1));
    hal_->Detect(1);
    Load();
    hal_->Detect(1);

    EXPECT_THAT(Broken(),
                ElementsAre(Rule::kUnknownHandle, Rule::kNotStarted, Rule::kNotStarted,
                            Rule::kSecondEvent, Rule::kSecondEventAfterDspRestart,
                            Rule::kEventAfterStop, Rule::kEventAfterUnload, Rule::kNotStarted));
}

TEST_F(FrameworkMonitorTest, TheEventOfADspRestartMayComeBesideAStart) {
    Start();
    hal_->Detect(1);
    RestartDsp();
    hal_->before_start_ = [this] { hal_->Detect(1); };
    Start();
    hal_->Detect(1);
    EXPECT_THAT(Broken(), ElementsAre());

    RestartDsp();
    hal_->start_result_ = -EINVAL;
    EXPECT_EQ(-EINVAL, monitor_.StartRecognition(1, 0, {}));
    hal_->Detect(1);
    EXPECT_THAT(Broken(), ElementsAre(Rule::kSecondEventAfterDspRestart)) << "the start failed";

    RestartDsp();
    hal_->start_result_ = 0;
    Start();
    hal_->Detect(1);
    hal_->Detect(1);
    EXPECT_THAT(Broken(), ElementsAre(Rule::kSecondEventAfterDspRestart, Rule::kSecondEvent))
            << "a start makes void what was detected before it";
}

TEST_F(FrameworkMonitorTest, StartsAndStopsThatOverlapMayHaveAnyOrder) {
    // The inner start, its event, and then the outer start: an event of that one is in time.
    hal_->before_start_ = [this] {
        Start();
        hal_->Detect(1);
    };
    Start();
    hal_->Detect(1);
    EXPECT_THAT(Broken(), ElementsAre());

    // A start that returns beside a stop may have come after it.
    std::promise<void> started;
    std::promise<void> stopping;
    hal_->before_start_ = [&] {
        started.set_value();
        stopping.get_future().wait();
    };
    std::thread starting([&] { Start(); });
    started.get_future().wait();
    hal_->before_stop_ = [&] {
        stopping.set_value();
        starting.join();
    };
    EXPECT_EQ(0, monitor_.StopRecognition(1));
    hal_->Detect(1);
    EXPECT_THAT(Broken(), ElementsAre());
}

TEST_F(FrameworkMonitorTest, AViolationNamesItsRuleItsThreadAndBothCalls) {
    Start();
    EXPECT_EQ(0, monitor_.StopRecognition(1));
    std::thread([this] {
        (void)pthread_setname_np(pthread_self(), "detector");
        hal_->Detect(1);
    }).join();

    ASSERT_EQ(1U, monitor_.violations().size());
    EXPECT_THAT(ToText(monitor_.violations().front()),
                MatchesRegex("an event after the stop of its model has returned: "
                             "#7 recognitionCallback\\(1\\) on thread [0-9]+ \\(detector\\), "
                             "after #6 StopRecognition\\(1\\) -> 0 on thread [0-9]+ \\(.*\\)"));
}

TEST_F(FrameworkMonitorTest, ACallbackUnderTheLockBreaksItsRule) {
    Start();
    {
        std::lock_guard lock(hal_->lock_);
        hal_->Detect(1);
    }

    EXPECT_THAT(Broken(), ElementsAre(Rule::kCallbackUnderLock));
}

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
