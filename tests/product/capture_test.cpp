// Recognition for a capture without a detection, and the audio of any capture.
#include <chrono>
#include <future>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kStopFailed[] = "E RuntimeState: ToLoadState: stop detection failure due to -5";
constexpr char kEndFailed[] = "E Hal: StopInternalForce: reset hotword model failure-22";

class CaptureTest : public RunningHalTest {
  protected:
    int Begin() { return hal_->InternalForceRecognition(); }
    int End() { return hal_->StopInternalForceRecognition(); }
    int Buffer(int io_handle, bool is_forced = false) {
        return hal_->StartBufferingByIoHandle(io_handle, is_forced);
    }
};

TEST_F(CaptureTest, WithoutAHotwordModelTheHalsOwnClientTakesNoneOfTheFrameworksHandles) {
    Check(0, Begin(), "Start(1) Internal(0)");
    EXPECT_EQ("Hotword InternalForceDetected", Field(0, "Engine type") + " " + State(0));
    for (const int handle : {1, 2, 3}) EXPECT_EQ(handle, Load(GENERIC));
    // Its end is what the unload comes to, which stops again, and it goes in any case.
    Fail("Stop");
    Check(0, End(), "Stop(1) Stop(1) Unload(1)", {kStopFailed});
    EXPECT_EQ(1, log_.Count("I Hal: StopInternalForce: Unload internal client with 0"));
    Check(0, Begin(), "Start(1) Internal(0)");
    Fail("Unload");
    Check(-EINVAL, End(), "Stop(1) Unload(1)",
          {"E RuntimeState: ToUnloadState: failure due to -5", kEndFailed});
    EXPECT_EQ("", State(0));
    Check(0, End(), "");
}

TEST_F(CaptureTest, LastHotwordModelIsBorrowedAndItsEndReportsTheStopOrTheRestart) {
    (void)Load(KEYPHRASE);
    (void)Load(KEYPHRASE);
    Check(0, Begin(), "Start(1) Internal(0)");
    EXPECT_EQ("ModelLoaded InternalForceDetected", State(1) + " " + State(2));
    Fail("Stop");
    Check(-EINVAL, End(), "Stop(1)", {kStopFailed, kEndFailed});
    Check(0, hal_->StartRecognition(2, 0, 10, {}), "");
    Online(true);
    Forget();
    Check(0, Begin(), "Internal(0)");
    Check(0, End(), "Stop(1) Start(1)");
    Check(0, Begin(), "Internal(0)");
    Fail("Start");
    Check(-EINVAL, End(), "Stop(1) Start(1)",
          {"E RuntimeState: ToDetecting: failure due to -5", kEndFailed});
    EXPECT_EQ(2, hal_->GetModelHandle(10)) << "the framework still wants it";
    Check(0, Begin(), "Start(1) Internal(0)");
    Fail("Stop");
    Check(0, End(), "Stop(1)", {kStopFailed});  // The state takes a start for granted.
}

TEST_F(CaptureTest, RefusedWhileOfflineOrWhileADetectionIsProcessedOrCaptured) {
    const std::string refused = "E Hal: InternalForceRecognition: ";
    Online(false);
    Check(-EINVAL, Begin(), "", {refused + "Dsp isn't ready, ignore request"});
    Online(true);
    (void)Start(KEYPHRASE, 10);
    Detect(kHotword);
    Check(-EINVAL, Begin(), "", {refused + "Hotword in progress, cannot do the request"});
    Check(kHotword, Buffer(10));
    Check(-EINVAL, Begin(), "", {refused + "Hotword in progress, cannot do the request"});
}

TEST_F(CaptureTest, RequestThatFailsRemovesEvenTheFrameworksModel) {
    constexpr char kFailed[] =
            "E Hal: InternalForceRecognition: Request internal reocognition failure -22";
    constexpr char kCause[] = "E RuntimeState: ToInternalForceRecognition: failure due to -5";
    (void)Start(KEYPHRASE, 10);
    Fail("Internal");
    Check(-EINVAL, Begin(), "Internal(0)", {kCause, kFailed});
    EXPECT_EQ("", State(1));
    EXPECT_EQ(-EINVAL, hal_->GetModelHandle(10));
    Fail("Internal");
    Check(-EINVAL, Begin(), "Start(1) Internal(0)", {kCause, kFailed});
    Check(0, Begin(), "Start(1) Internal(0)");
    Check(-EINVAL, Begin(), "", {kFailed});
    EXPECT_EQ("", State(0)) << "its state knows no second one";
}

TEST_F(CaptureTest, HotwordRequestsOfTheFrameworkEndItFirstAndAreRefusedWhenTheyCannot) {
    (void)Load(KEYPHRASE);
    for (const std::string name : {"LoadModel", "StartRecognition", "UnloadSoundModel"}) {
        Check(0, Begin(), "Start(1) Internal(0)");
        Fail("Stop");
        const int result = name == "LoadModel"          ? TryLoad(ModelOf(KEYPHRASE, "new"))
                           : name == "StartRecognition" ? hal_->StartRecognition(1, 0, 10, {})
                                                        : hal_->UnloadSoundModel(1);
        Check(-EINVAL, result, "Stop(1)",
              {kStopFailed, kEndFailed, "E Hal: " + name + ": Failed to stop internal client"});
        Online(true);  // Stops it, so that another one can begin.
        Forget();
    }
    Check(0, hal_->StartRecognition(1, 0, 10, {}), "Start(1)");
    Check(0, Begin(), "Internal(0)");
    Check(0, hal_->StopRecognition(1), "Stop(1) Start(1) Stop(1)");
}

TEST_F(CaptureTest, InternalClientsHandleIsUnknownOnceARequestForItHasEndedIt) {
    Check(0, Begin(), "Start(1) Internal(0)");
    Check(-EINVAL, hal_->StopRecognition(0), "",
          {"E Hal: StopRecognition: client 0 is not started yet."});
    Check(-EINVAL, hal_->StartRecognition(0, 0, 10, {}), "Stop(1) Unload(1)",
          {"E Hal: StartRecognition: client doesn't exist with handle 0"});
    Check(0, Begin(), "Start(1) Internal(0)");
    Check(-EINVAL, hal_->UnloadSoundModel(0), "Stop(1) Unload(1)",
          {"E Hal: UnloadSoundModel: client doesn't exist with handle 0"});
}

TEST_F(CaptureTest, EachDetectionServesOneStream) {
    const std::string refused = "E Hal: StartBufferingByIoHandle: request buffering from ";
    Check(-EINVAL, Buffer(10));
    (void)Start(GENERIC, 10);
    Check(-EINVAL, Buffer(11));
    Check(-EINVAL, Buffer(10, true));
    Check(-EINVAL, Buffer(10), "", {refused + "StartDetecting"});
    Detect(kAmbient);
    Check(kAmbient, Buffer(10));
    Check(-EINVAL, Buffer(10), "", {refused + "Buffering"});
    Check(0, Begin(), "Start(1) Internal(0)");
    Online(false);
    Check(0, End(), "");  // Keeps the mark, and the DSP's return does not restart it.
    Online(true);
    Forget();
    Check(-EINVAL, Buffer(0, true), "", {refused + "ModelUnloaded"});
    Check(0, Begin(), "Start(1) Internal(0)");
    Check(kHotword, Buffer(-12345, true));
}

TEST_F(CaptureTest, FailedReadIsSilenceAtThePaceOfAudioAndATimeoutAtOnce) {
    constexpr int kTimeouts = 100;
    std::string buffer(4096, 'x');
    Fail("Read(1,4000,2)");
    steady_clock::time_point start = steady_clock::now();
    EXPECT_EQ(4000, hal_->ReadBuffer(kHotword, buffer.data(), 4000, 2));
    EXPECT_GE(steady_clock::now() - start, milliseconds(64));
    EXPECT_EQ(std::string(4000, '\0') + std::string(96, 'x'), buffer);
    EXPECT_EQ(4000, hal_->ReadBuffer(kHotword, buffer.data(), 4000, 2));
    EXPECT_EQ('\x03', buffer[3]);

    dsp_.Script({.call = "Read", .result = -ETIMEDOUT, .times = kTimeouts});
    start = steady_clock::now();
    for (int count = 0; count < kTimeouts; ++count) {
        buffer.assign(97, 'x');
        EXPECT_EQ(96, hal_->ReadBuffer(kHotword, buffer.data(), 96, 2));
        EXPECT_EQ(std::string(96, '\0') + 'x', buffer);
    }
    EXPECT_LT(steady_clock::now() - start, kTimeouts * milliseconds(64)) << "slept on time-outs";

    log_.SetMinimum(::android::base::VERBOSE);
    Online(false);
    EXPECT_EQ(-ENODEV, hal_->ReadBuffer(kHotword, nullptr, 96, 2));
    EXPECT_EQ(1, log_.Count("V Hal: ReadBuffer: Dsp isn't online, can't read the data."));
}

TEST_F(CaptureTest, CaptureAndLookupsGoOnWhileAModelIsDownloaded) {
    (void)Start(GENERIC, 10);
    dsp_.Script({.call = "Load(1", .during = [this] {
                     EXPECT_TRUE(leave_.try_acquire_for(kDeadline)) << "capture waits for it";
                 }});
    const auto loading = std::async(std::launch::async, [this] { (void)Load(KEYPHRASE); });
    dsp_.WaitForCall("Load(1");
    std::string buffer(2048, '\0');
    SoundTriggerHal::Properties properties;
    EXPECT_EQ(2048, hal_->ReadBuffer(kHotword, buffer.data(), 2048, 2));
    EXPECT_EQ(-1, hal_->ReadTimestamp(kHotword));
    EXPECT_EQ(0, hal_->GetProperties(&properties));
    EXPECT_EQ(1, hal_->GetModelHandle(10));
    leave_.release();
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
