// How the HAL is built, initialised and destroyed.
#include <sys/resource.h>

#include <future>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

constexpr char kResetCalls[] =
        "Eraser(off) MicSwap(off) Reference(off) ApProcess(off) Stop(1) Unload(1) Stop(2) "
        "Unload(2) Tuning(1)";
constexpr char kNoPipe[] = "E Hal: ControlThreadLoop: fail to create pipe";

ptrdiff_t OpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

TEST_F(HalTest, WithoutMonitorInitializeResetsTheDspInOrderAndSucceedsWhateverTheDspSays) {
    dsp_.Script({.call = "", .result = -EIO, .times = 9});
    Check(true, hal_->Initialize(), kResetCalls,
          {"E Hal: Initialize: Initialize without sound card monitor"});
    EXPECT_EQ(1U, ControlThreads().size());
    EXPECT_EQ(-ENODEV, hal_->ReadBuffer(kHotword, nullptr, 0, 1)) << "online by itself";
}

TEST_F(HalTest, MonitorDecidesTheResultOfInitializeButReportsOnlyLater) {
    SoundTriggerHal::SoundCardState monitor;
    hal_->SetSoundCardState(&monitor);
    Check(false, hal_->Initialize(), kResetCalls);
    dsp_.WaitForCall("Unwatch");
    monitor.Report(true);
    EXPECT_EQ("MicSwap(off) Reference(off) ApProcess(off) Tuning(1)", dsp_.TakeCommands());

    SoundTriggerHal other(std::make_unique<ScriptedAdapter>());
    other.SetSoundCardState(&monitor);
    EXPECT_TRUE(other.Initialize());
    EXPECT_EQ(-ENODEV, other.ReadBuffer(kHotword, nullptr, 0, 1)) << "online before the report";
}

TEST_F(HalTest, RefusedRegistrationFailsInitializeButTheControlThreadRuns) {
    SoundTriggerHal::SoundCardState monitor;
    monitor.Report(true);
    ASSERT_TRUE(monitor.RegisterListener(hal_.get()));
    hal_->SetSoundCardState(&monitor);
    Check(false, hal_->Initialize(), kResetCalls,
          {"E Hal: Initialize: Failed to register sound card state listener"});
    dsp_.WaitForCall("Unwatch");
}

TEST_F(RunningHalTest, DestructionEndsAWaitingControlThreadClosesItsPipeAndLeavesTheDspAlone) {
    const ptrdiff_t descriptors = OpenDescriptors();
    (void)Start(GENERIC, 10);
    Detect(kAmbient);
    EXPECT_EQ(descriptors + 1, OpenDescriptors()) << "of the notification device";
    dsp_.Script({.call = "Stop", .times = ScriptedAdapter::kNever});
    dsp_.Script({.call = "Unload", .times = ScriptedAdapter::kNever});
    hal_.reset();
#if !defined(STHAL_THREAD_SANITIZER)  // Which opens some for its reports.
    EXPECT_EQ(descriptors - 2, OpenDescriptors()) << "without the pipe's two";
#endif
    EXPECT_TRUE(log_.HasInOrder({"I Hal: ~SoundTriggerHal: Enter", "I Hal: ControlThreadLoop: exit",
                                 "I Hal: ~SoundTriggerHal: Finished"}));
}

TEST(HalLifeTest, DestructionAtAnyMomentOfTheThreadsStartEnds) {
    const LogCapture log;
    for (int round = 0; round < 200; ++round) {
        SoundTriggerHal hal(std::make_unique<ScriptedAdapter>());
        if (round > 0) (void)hal.Initialize();
    }
}

TEST_F(RunningHalTest, DestructionDuringACallbackWaitsForItsEnd) {
    Hold();
    const auto destroyed = std::async(std::launch::async, [this] {
        hal_.reset();
        EXPECT_EQ(1U, callback_->events().size()) << "did not wait";
    });
    log_.WaitFor("I Hal: ~SoundTriggerHal: Enter");
    leave_.release();
}

TEST_F(RunningHalTest, StopAndUnloadWaitForTheCallbackThatRuns) {
    const auto expect_wait = [this](const char* line, int (SoundTriggerHal::*request)(int)) {
        (void)callback_->Take();
        Hold();
        const auto returned = std::async(std::launch::async, [&] {
            EXPECT_EQ(0, (hal_.get()->*request)(1));
            EXPECT_EQ(1U, callback_->events().size()) << "did not wait: " << line;
        });
        log_.WaitFor(line);
        leave_.release();
    };
    expect_wait("I Hal: StopRecognition: Stopped recognition of client 1",
                &SoundTriggerHal::StopRecognition);
    EXPECT_EQ(0, hal_->UnloadSoundModel(1));
    expect_wait("I Hal: UnloadSoundModel: Unload model with handle 1",
                &SoundTriggerHal::UnloadSoundModel);
}

TEST_F(HalTest, WithoutAPipeTheHalWorksExceptForDetectionsAndCanBeDestroyed) {
    rlimit normal{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &normal));
    const rlimit none{0, normal.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    EXPECT_TRUE(hal_->Initialize());
    log_.WaitFor(kNoPipe);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &normal));
    Forget();
    Online(true);
    EXPECT_THAT(log_.TakeProblems(),
                ElementsAre("E Hal: SendControlMessage: pipe reader doesn't exist"));
    EXPECT_EQ("StartDetecting", State(Start(KEYPHRASE, 10)));
}

TEST_F(HalTest, PipeBeyondWhatSelectKnowsCountsAsNone) {
    std::vector<::ndk::ScopedFileDescriptor> low;
    do {
        low.emplace_back(dup(STDERR_FILENO));
        ASSERT_GE(low.back().get(), 0) << "needs a descriptor limit above FD_SETSIZE";
    } while (low.back().get() < FD_SETSIZE - 1);
    (void)hal_->Initialize();
    log_.WaitFor(kNoPipe);
}

TEST_F(HalTest, PrefixIsOneObjectForAllThreads) {
    auto other = std::async(std::launch::async, [this] { return &hal_->GetPrefix(); });
    EXPECT_EQ("vendor.vexor.st.", hal_->GetPrefix());
    EXPECT_EQ(&hal_->GetPrefix(), other.get());
}

TEST_F(HalTest, ResetsOfTheDspReportTheirLastStepAlone) {
    Fail("Eraser");
    Check(0, SoundTriggerHalPeer(*hal_).ResetDsp(), kResetCalls);
    Fail("Tuning");
    Check(-EIO, SoundTriggerHalPeer(*hal_).ResetDsp(), kResetCalls);
    Fail("Stop");
    dsp_.Script({.call = "Unload", .result = 3});
    Check(3, SoundTriggerHalPeer(*hal_).ResetModelInDsp(kAmbient), "Stop(2) Unload(2)");
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
