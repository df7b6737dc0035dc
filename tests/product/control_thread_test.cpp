// The control thread: when it is woken, what it watches, and how detections reach the framework.
#include <fcntl.h>
#include <signal.h>

#include <array>
#include <chrono>
#include <thread>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::steady_clock;

using ControlThreadTest = RunningHalTest;

TEST_F(ControlThreadTest, OnlyWhatChangesTheWatchSendsAMessage) {
    int messages = 0;
    const auto expect = [&](int count, int, int line = __builtin_LINE()) {
        messages += count;
        EXPECT_EQ(messages * 4, SoundTriggerHalPeer(*hal_).PendingMessageBytes()) << line;
    };
    Hold();
    expect(0, Load(KEYPHRASE));
    Fail("Start(1)");
    expect(0, hal_->StartRecognition(2, 0, 20, {}));
    expect(1, hal_->StartRecognition(2, 0, 20, {}));
    expect(1, hal_->StopRecognition(2));
    expect(1, hal_->InternalForceRecognition());
    expect(0, hal_->StartBufferingByIoHandle(0, true));
    expect(1, hal_->StopInternalForceRecognition());
    expect(0, hal_->StopInternalForceRecognition());
    expect(1, hal_->InternalForceRecognition());
    Fail("Stop(1)");
    expect(0, hal_->StopInternalForceRecognition());
    expect(0, hal_->ForceRecognitionEvent(1));
    expect(1, hal_->UnloadSoundModel(2));
    expect(1, hal_->InternalForceRecognition());
    expect(1, (Online(false), 0));
    expect(1, hal_->StopInternalForceRecognition());
    expect(0, (hal_->OnDockChargerConnected(true), 0));
}

TEST_F(ControlThreadTest, BurstOfMessagesCausesOneRebuild) {
    Hold();
    for (int count = 0; count < 5; ++count) Online(true);
    Forget();
    leave_.release();
    log_.WaitFor("I Hal: ControlThreadLoop: get update command", 5);
    dsp_.WaitForCall("Watch", 2);
    EXPECT_TRUE(callback_->WaitForEvents(1));
    Detect(kAmbient);
    std::vector<std::string> calls = dsp_.Take();
    calls.resize(3);  // The rebuild after the event may be there already.
    EXPECT_THAT(calls, ElementsAre("Watch()", "Watch()", "Notification()"));
}

TEST_F(ControlThreadTest, DetectionsAreWatchedOnlineWhileAClientIsActive) {
    const auto expect = [this](const char* call, int) {
        dsp_.WaitForCall(call);
        (void)dsp_.TakeCommands();
        EXPECT_THAT(dsp_.Take(), ElementsAre(call));
    };
    expect("Watch()", Start(GENERIC, 10));
    expect("Unwatch()", hal_->StopRecognition(1));
    expect("Watch()", hal_->InternalForceRecognition());
    expect("Unwatch()", (Online(false), 0));
    expect("Unwatch()", hal_->StartRecognition(1, 0, 10, {}));
    expect("Watch()", (Online(true), 0));
    expect("Watch()", hal_->StopInternalForceRecognition());
    expect("Unwatch()", hal_->UnloadSoundModel(1));
}

TEST_F(ControlThreadTest, UnusableNotificationDescriptorIsNotWatchedAndAskedForAgain) {
    constexpr char kNone[] = "W Hal: ControlThreadLoop: Can't get notification fd.";
    dsp_.Script({.call = "Watch", .result = -1});
    dsp_.Script({.call = "Watch", .result = FD_SETSIZE});
    for (const int io_handle : {10, 11}) {
        (void)Start(GENERIC, io_handle);
        log_.WaitFor(kNone);
    }
    (void)Start(KEYPHRASE, 12);
    Detect(kAmbient);
}

TEST_F(ControlThreadTest, DetectionGoesToTheLowestStartedModelOfItsEngineOrToNobody) {
    const std::string line = "I Hal: ControlThreadLoop: read trigger event with model type: ";
    (void)Load(KEYPHRASE);
    (void)Start(KEYPHRASE, 10);
    (void)Start(KEYPHRASE, 11);
    for (const int engine : {3, kAmbient, 0}) dsp_.Notify({.engine = engine, .payload = "none"});
    Detect(kHotword);
    EXPECT_TRUE(log_.HasInOrder(
            {line + "3", line + "2", line + "0", line + "1",
             "I Hal: ControlThreadLoop: received Hotword recognition with payload: payload"}));
    // A second one it refuses, and nobody else gets it.
    dsp_.Notify({.engine = kHotword});
    log_.WaitFor(
            "E Hal: ControlThreadLoop: requested CallbackProcessing failure from "
            "CallbackProcessing");
    EXPECT_EQ(2, callback_->events().at(0).handle);
    EXPECT_EQ("StartDetecting", State(3));
}

TEST_F(ControlThreadTest, DetectionDuringInternalRecognitionIsDropped) {
    (void)Start(KEYPHRASE, 10);
    EXPECT_EQ(0, hal_->InternalForceRecognition());
    dsp_.Notify({.engine = kHotword});
    (void)Start(GENERIC, 11);
    Detect(kAmbient);
    EXPECT_EQ(2, callback_->events().at(0).handle);
    EXPECT_EQ("InternalForceDetected", State(1));
}

TEST_F(ControlThreadTest, ReadWithoutARecordIsFollowedByAPauseAndOnlyARestartIsNamed) {
    std::array<steady_clock::time_point, 3> failed;
    std::array<steady_clock::time_point, 3> watched;
    (void)Start(GENERIC, 10);
    dsp_.WaitForCall("Watch");
    for (size_t i = 0; i < failed.size(); ++i) {
        dsp_.Script(
                {.call = "Notification", .during = [&, i] { failed[i] = steady_clock::now(); }});
        dsp_.Script({.call = "Watch", .during = [&, i] { watched[i] = steady_clock::now(); }});
    }
    dsp_.Notify({.result = -EIO});
    dsp_.WaitForCall("Watch", 2);
    dsp_.Notify({.result = -ENODEV});
    dsp_.WaitForCall("Watch", 3);
    dsp_.Notify({.is_torn = true});
    Detect(kAmbient);
    EXPECT_EQ(1, log_.Count("I Hal: ControlThreadLoop: read trigger event with model type: 0"));
    EXPECT_THAT(log_.TakeProblems(),
                ElementsAre("E Hal: ControlThreadLoop: read trigger event failure: -5",
                            "E Hal: ControlThreadLoop: read trigger event failure: -19",
                            "W Hal: ControlThreadLoop: Wait for dsp interface when restarting."));
    for (size_t i = 0; i < failed.size(); ++i) {
        EXPECT_GE(watched[i] - failed[i], std::chrono::milliseconds(100)) << "the loop spins";
    }
}

TEST_F(ControlThreadTest, RestartBetweenTwoTurnsOpensTheNotificationDeviceAnew) {
    Hold();
    Online(false);
    Online(true);
    Forget();
    leave_.release();
    dsp_.WaitForCall("Watch");
    std::vector<std::string> calls = dsp_.Take();
    calls.resize(2);
    EXPECT_THAT(calls, ElementsAre("Unwatch()", "Watch()"))
            << "reads from a node of the former DSP";
}

TEST_F(ControlThreadTest, CallbackMayRestartAndUnloadItsModel) {
    callback_->SetAction([this](int handle) {
        EXPECT_EQ("CallbackProcessing", State(handle));
        EXPECT_EQ(0, hal_->StartRecognition(handle, 0, 11, {}));
    });
    (void)Start(KEYPHRASE, 10);
    Detect(kHotword);
    callback_->SetAction([this](int handle) { EXPECT_EQ(0, hal_->UnloadSoundModel(handle)); });
    Detect(kHotword);
    dsp_.WaitForCall("Unwatch");
    EXPECT_EQ("", State(1));
    EXPECT_THAT(log_.TakeProblems(), ElementsAre());
}

TEST_F(ControlThreadTest, ModelUnloadedWhileItDetectsIsToldAtMostOnceAndNotTouchedAgain) {
    constexpr size_t kRounds = 50;
    for (size_t round = 0; round < kRounds; ++round) {
        const int handle = Start(KEYPHRASE, 10);
        std::thread unloader;
        // It waits for the lock, which is held here, beside the delivery.
        const auto unload = [&] { EXPECT_EQ(0, hal_->UnloadSoundModel(handle)); };
        dsp_.Script({.call = "Notif", .during = [&] { unloader = std::thread(unload); }});
        dsp_.Notify({.engine = kHotword});
        dsp_.WaitForCall("Unload");
        unloader.join();
    }
    hal_.reset();
    EXPECT_LE(callback_->events().size(), kRounds);
}

TEST_F(ControlThreadTest, DetectionWithoutAReceiverIsAWarning) {
    ASSERT_EQ(0, hal_->LoadSoundModel(ModelOf(GENERIC, "v"), nullptr, &handle_));
    EXPECT_EQ(0, hal_->StartRecognition(1, 0, 10, {}));
    (void)Start(KEYPHRASE, 11);
    dsp_.Notify({.engine = kAmbient});
    Detect(kHotword);
    EXPECT_THAT(log_.TakeProblems(), ElementsAre(StartsWith("W Client: ExecuteCallback: ")));
}

TEST_F(ControlThreadTest, PayloadArrivesByteByByteAndDoesNotOutliveItsEvent) {
    const std::string payload("\0\x01\xFF kept\0\0", 10);
    callback_->SetAction([this](int) { EXPECT_EQ(0, hal_->StartRecognition(1, 0, 10, {})); });
    (void)Start(GENERIC, 10);
    Detect(kAmbient, payload);
    dsp_.Notify({.engine = kAmbient});
    EXPECT_TRUE(callback_->WaitForEvents(2));
    const auto events = callback_->events();
    EXPECT_EQ(std::vector<uint8_t>(payload.begin(), payload.end()), events[0].event.common.data);
    EXPECT_TRUE(events[1].event.common.data.empty());
}

TEST_F(ControlThreadTest, SignalDoesNotEndTheLoop) {
    ASSERT_NE(SIG_ERR, signal(SIGUSR1, [](int) {}));
    const std::vector<pid_t> threads = ControlThreads();
    // It may be on its way to select() still, where a signal passes unnoticed.
    while (log_.Count("W Hal: ControlThreadLoop: try to select again") == 0) {
        ASSERT_EQ(0, tgkill(getpid(), threads.at(0), SIGUSR1));
        std::this_thread::yield();
    }
    (void)Start(GENERIC, 10);
    Detect(kAmbient);
}

TEST_F(ControlThreadTest, SelectThatFailsEndsTheLoopAndClosesThePipe) {
    const int closed_fd = fcntl(STDERR_FILENO, F_DUPFD, 60);  // Nobody else will be given it.
    ASSERT_EQ(0, close(closed_fd));
    dsp_.Script({.call = "Watch", .result = closed_fd});
    (void)Start(GENERIC, 10);
    const auto deadline = steady_clock::now() + kDeadline;
    while (!ControlThreads().empty()) ASSERT_LT(steady_clock::now(), deadline) << "does not end";
    EXPECT_EQ(0, hal_->StopRecognition(1)) << "the rest of the HAL works on";
    EXPECT_THAT(log_.TakeProblems(),
                ElementsAre("E Hal: ControlThreadLoop: select errno 9",
                            "E Hal: ControlThreadLoop: exit loop due to 9",
                            "E Hal: SendControlMessage: pipe reader doesn't exist"));
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
