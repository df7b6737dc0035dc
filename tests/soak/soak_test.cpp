// That a soak finds what is wrong: a DSP that does not do as it is told stands for a HAL that does
// not tell it.
#include <android-base/logging.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/soak/soak_run.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using Kind = Step::Kind;

/** A target that spoils one thing. */
class SpoiltTarget : public SoakTarget {
  public:
    std::unique_ptr<SoundTriggerHal> BuildHal() override { return inner_->BuildHal(); }
    std::vector<uint8_t> Model(int engine, int number) const override {
        return inner_->Model(engine, number);
    }
    DspView View() override { return inner_->View(); }
    bool HasRecord() override { return inner_->HasRecord(); }
    void Detect(int engine) override { inner_->Detect(engine); }
    void Crash() override { inner_->Crash(); }
    void Boot() override { inner_->Boot(); }
    void Fail(DspCall call, int times) override { inner_->Fail(call, times); }
    void FailNextRead(int status) override { inner_->FailNextRead(status); }
    void SetAudioFault(bool is_silent) override { inner_->SetAudioFault(is_silent); }
    bool has_plain_payloads() const override { return true; }

  protected:
    const std::unique_ptr<SoakTarget> inner_ = MakeMemoryTarget();
};

/** Does not start the ambient engine when it is back. */
class LosesAStartAfterCrash : public SpoiltTarget {
  public:
    void Boot() override {
        if (!View().up) inner_->Fail({DspOp::kStart, 2}, 1);
        inner_->Boot();
    }
};

class LosesDetections : public SpoiltTarget {
  public:
    void Detect(int engine) override {
        if (engine != 1) inner_->Detect(engine);
    }
};

class SoakTest : public ::testing::Test {
  protected:
    void SetUp() override { ::android::base::SetMinimumLogSeverity(::android::base::FATAL); }
    void TearDown() override { ::android::base::SetMinimumLogSeverity(::android::base::INFO); }

    // A failing run of `Target`, shortened.
    template <typename Target>
    std::vector<Step> FindAndShrink() {
        const auto make_target = [] { return std::make_unique<Target>(); };
        const auto fails = [&](const std::vector<Step>& steps) {
            SoakCounts counts;
            const auto finding = RunSteps(steps, make_target, &counts);
            return finding.has_value();
        };
        const std::vector<Step> steps = StepGenerator(1, false).Make(2000);
        EXPECT_TRUE(fails(steps)) << "the fault goes unnoticed";
        return Shrink(steps, fails, std::chrono::seconds(20));
    }

    static std::vector<Kind> KindsOf(const std::vector<Step>& steps) {
        std::vector<Kind> kinds;
        for (const Step& step : steps) kinds.push_back(step.kind);
        return kinds;
    }
};

TEST_F(SoakTest, ALostRestartIsFoundAndShortenedToItsCause) {
    const auto steps = FindAndShrink<LosesAStartAfterCrash>();

    EXPECT_THAT(KindsOf(steps),
                ::testing::IsSupersetOf({Kind::kLoad, Kind::kStart, Kind::kCrash, Kind::kRecover}));
    EXPECT_LE(steps.size(), 6U);
}

TEST_F(SoakTest, ALostDetectionIsFoundAndShortenedToItsCause) {
    const auto steps = FindAndShrink<LosesDetections>();

    EXPECT_THAT(KindsOf(steps),
                ::testing::IsSupersetOf({Kind::kLoad, Kind::kStart, Kind::kDetect}));
    EXPECT_LE(steps.size(), 4U);
}

TEST_F(SoakTest, OneSeedMakesOneRun) {
    const auto texts = [](uint64_t seed) {
        std::string all;
        for (const Step& step : StepGenerator(seed, false).Make(500)) all += ToText(step) + "\n";
        return all;
    };

    EXPECT_EQ(texts(7), texts(7));
    EXPECT_NE(texts(7), texts(8));
}

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
