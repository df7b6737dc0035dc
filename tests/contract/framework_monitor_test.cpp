// The monitor itself: a fake HAL breaks each rule, and keeps them at their edge.
#include "host/framework_monitor/framework_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/contract/restart_loop.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using Rule = FrameworkMonitor::Rule;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/** Grants everything, and calls back whenever a test wants it to. */
class FakeHal final : public FrameworkCalls {
  public:
    int LoadSoundModel(const SoundModel&, std::shared_ptr<Callback> callback,
                       int* handle) override {
        callback_ = std::move(callback);
        *handle = 1;
        return 0;
    }
    int UnloadSoundModel(int) override { return 0; }
    int StartRecognition(int, int, const RecognitionConfig&) override { return start_result_; }
    int StopRecognition(int handle) override {
        if (is_detecting_late_) Detect(handle);
        return 0;
    }
    int ForceRecognitionEvent(int) override { return 0; }
    void PassThroughLock() override { std::lock_guard lock(lock_); }

    void Detect(int handle) { (void)callback_->recognitionCallback(handle, {}); }

    std::mutex lock_;
    int start_result_ = 0;
    bool is_detecting_late_ = false;

  private:
    std::shared_ptr<Callback> callback_;
};

class FrameworkMonitorTest : public ::testing::Test {
  protected:
    FrameworkMonitorTest() { Load(); }

    void Load() {
        const std::vector<uint8_t> bytes = {1};
        ASSERT_EQ(1, LoadModel(monitor_, SoundTriggerHalClient::SoundModelType::GENERIC, bytes,
                               "model", ::ndk::SharedRefBase::make<PayloadCallback>()));
    }
    void Start() { ASSERT_EQ(0, monitor_.StartRecognition(1, 0, {})); }

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
    hal_->is_detecting_late_ = true;
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
    monitor_.BeginDspRestart();
    monitor_.EndDspRestart();
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

TEST_F(FrameworkMonitorTest, AViolationNamesItsRuleItsThreadAndBothCalls) {
    Start();
    EXPECT_EQ(0, monitor_.StopRecognition(1));
    std::thread([this] {
        (void)pthread_setname_np(pthread_self(), "detector");
        hal_->Detect(1);
    }).join();

    ASSERT_EQ(1U, monitor_.violations().size());
    EXPECT_THAT(monitor_.violations().front().text,
                AllOf(HasSubstr("after the stop of its model"), HasSubstr("(detector)"),
                      HasSubstr("recognitionCallback(1)"), HasSubstr("StopRecognition(1) -> 0")));
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
