// The fakes themselves: a fake that lets things pass hides what it is there to show.
#define LOG_TAG "StHal::SoundTriggerFakes"

#include <gtest/gtest-spi.h>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

TEST(ScriptedAdapterTest, StepAppliesToTheCallsItNamesAndIsSpent) {
    ScriptedAdapter dsp;
    dsp.Script({.call = "Stop(2)", .result = -5, .after = 1, .times = 2});
    std::string results;
    for (const int engine : {1, 2, 2, 2, 2, 4}) {
        results += std::to_string(dsp.StopDetectionInDsp(engine)) + " ";
    }
    EXPECT_EQ("0 0 -5 -5 0 -22 ", results);
}

TEST(ScriptedAdapterTest, LeftoversOverlappingCallsAndForbiddenOnesFailTheTest) {
    EXPECT_NONFATAL_FAILURE(ScriptedAdapter().Script({.call = "Tuning"}), "used up: Tuning");
    EXPECT_NONFATAL_FAILURE(ScriptedAdapter().Notify({.engine = 1}), "left unread");
    ScriptedAdapter dsp;
    dsp.Script({.call = "Eraser", .during = [&] { (void)dsp.SetupMicSwapInDsp(true); }});
    EXPECT_NONFATAL_FAILURE((void)dsp.SetupEraserInDsp(true), "MicSwap runs beside");
    dsp.Script({.call = "Unload", .times = ScriptedAdapter::kNever});
    EXPECT_NONFATAL_FAILURE((void)dsp.UnloadSoundModelFromDsp(1), "must not come: Unload(1)");
    int engine = 0;
    std::string payload;
    EXPECT_NONFATAL_FAILURE((void)dsp.ReadDspNotification(&engine, payload), "does not wait");
}

TEST(LogCaptureTest, KeepsSeverityTagAndTextInOrder) {
    LogCapture log;
    LOG(DEBUG) << "not made";
    LOG(INFO) << "first";
    LOG(ERROR) << "second";
    EXPECT_TRUE(log.HasInOrder({"I Fakes: first", "E Fakes: second"}));
    EXPECT_FALSE(log.HasInOrder({"E Fakes: second", "I Fakes: first"}));
    EXPECT_THAT(log.TakeProblems(), ElementsAre("E Fakes: second"));
    EXPECT_THAT(log.Take(), ElementsAre("I Fakes: first"));
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
