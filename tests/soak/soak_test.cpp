// That a soak finds what is wrong: a DSP that does not do as it is told stands for a HAL that does
// not tell it.
#include <android-base/logging.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/soak/memory_target.h"
#include "tests/soak/soak_run.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using Kind = Step::Kind;

namespace {

/** Does not start the ambient engine when it is back. */
class LosesAStartAfterCrash : public MemoryTarget {
  public:
    void Boot() override {
        if (!View().up) Fail({DspOp::kStart, 2}, 1);
        MemoryTarget::Boot();
    }
};

class LosesDetections : public MemoryTarget {
  public:
    void Detect(int engine) override {
        if (engine != 1) MemoryTarget::Detect(engine);
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
