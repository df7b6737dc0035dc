// The framework's requests: properties, models, recognition.
#include <sys/resource.h>

#include <climits>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using RequestTest = RunningHalTest;

TEST_F(RequestTest, HandlesAreTheSmallestFreeOnesAndModelsAreToldApartByTheirVendorUuid) {
    SoundTriggerHal::PhraseSoundModel phrases;
    phrases.common = ModelOf(KEYPHRASE, "v", {"a\0c", 3});
    phrases.common.dataSize = 9;
    phrases.phrases.resize(2);
    Check(0, hal_->LoadPhraseSoundModel(phrases, callback_, &handle_), {"Load(1,3,a\0c)", 13});
    EXPECT_EQ("KEYPHRASE 3", Field(1, "SoundModel type") + " " + Field(1, "SoundModel size"));
    Check(-EINVAL, TryLoad(ModelOf(GENERIC, "v")), "",
          {"E Hal: LoadModel: The model 1 with uuid v is existed"});
    Check(0, TryLoad(ModelOf(GENERIC, {"v\0", 2})), "Load(2,5,model)");
    EXPECT_EQ(3, Load(GENERIC));
    Check(-EINVAL, TryLoad(ModelOf(GENERIC, "fourth")), "",
          {"E Hal: LoadModel: Loaded count 4 is over max number 3"});
    EXPECT_EQ(-77, handle_) << "touched";
    Check(0, hal_->UnloadSoundModel(2), "Unload(2)");
    EXPECT_EQ(2, Load(KEYPHRASE));
}

TEST_F(RequestTest, ModelThatCannotBeLoadedLeavesNoTrace) {
    const std::string nobody = DumpOf(*hal_);
    const auto refuse = [this](int type, int data_size, const std::string& reason, int fd = 0) {
        auto model = ModelOf(static_cast<SoundTriggerHalClient::SoundModelType>(type), "v");
        model.dataSize = data_size;
        if (fd < 0) model.data.set(fd);
        Check(-EINVAL, TryLoad(model), "",
              {"E Client: Initialize: " + reason, "E Hal: LoadModel: Client initializes failed."});
    };
    refuse(-1, 5, "Invalid SoundModelType : INVALID");
    refuse(7, 5, "Invalid SoundModelType : 7");
    refuse(0, 0, "No model data");
    refuse(1, INT_MIN, "No model data");
    refuse(1, 5, "read model data failure: -1", -1);
    dsp_.Script({.call = "Load", .result = 3});
    Check(-EINVAL, TryLoad(ModelOf(KEYPHRASE, "v")), "Load(1,5,model)",
          {"E RuntimeState: ToLoadState: failure due to 3",
           "E Hal: LoadModel: Load model failed with handle 1"});
    EXPECT_EQ(nobody, DumpOf(*hal_));
    EXPECT_EQ(-77, handle_) << "touched";
    EXPECT_EQ(0, TryLoad(ModelOf(KEYPHRASE, "v"))) << "the uuid is not free again";
}

TEST_F(RequestTest, SizeBeyondMemoryIsRefused) {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t used = pages * static_cast<rlim_t>(getpagesize());
    if (used >> 40 != 0) GTEST_SKIP() << "a sanitizer's own memory cannot be limited";
    auto model = ModelOf(GENERIC, "v");
    model.dataSize = INT_MAX;
    rlimit normal{};
    ASSERT_EQ(0, getrlimit(RLIMIT_AS, &normal));
    const rlimit limited{used + (64U << 20), normal.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limited));
    const int result = TryLoad(model);
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &normal));
    EXPECT_EQ(-EINVAL, result);
    EXPECT_EQ(2U, log_.TakeProblems().size());
}

TEST_F(RequestTest, UnloadThatFailsKeepsTheModelForAnotherTry) {
    constexpr char kFailed[] = "E Hal: UnloadSoundModel: unLoad model failed with handle 1";
    (void)Start(KEYPHRASE, 10);
    Fail("Stop");
    Check(-EINVAL, hal_->UnloadSoundModel(1), "Stop(1)",
          {"E RuntimeState: ToUnloadState: stop detection failure due to -5", kFailed});
    EXPECT_EQ(1, hal_->GetModelHandle(10));
    Check(0, hal_->UnloadSoundModel(1), "Stop(1) Unload(1)");
    EXPECT_EQ(-EINVAL, hal_->GetModelHandle(10));
}

TEST_F(RequestTest, UnknownHandleIsRefused) {
    const std::string unknown = ": client doesn't exist with handle 2";
    Check(-EINVAL, hal_->UnloadSoundModel(2), "", {"E Hal: UnloadSoundModel" + unknown});
    Check(-EINVAL, hal_->StartRecognition(2, 0, 1, {}), "", {"E Hal: StartRecognition" + unknown});
    Check(-EINVAL, hal_->StopRecognition(2), "", {"E Hal: StopRecognition" + unknown});
    Check(-EINVAL, hal_->ForceRecognitionEvent(2), "", {"E Hal: ForceRecognitionEvent" + unknown});
}

TEST_F(RequestTest, IoHandleLeadsToTheLowestModelWhoseStartSucceeded) {
    (void)Load(GENERIC);
    const std::string loaded = DumpOf(*hal_);
    Fail("Start");
    Check(-EINVAL, hal_->StartRecognition(1, 0, 0, {.captureRequested = true}), "Start(2)",
          {"E RuntimeState: ToDetecting: failure due to -5",
           "E Hal: StartRecognition: request detection failure -22"});
    EXPECT_EQ(loaded, DumpOf(*hal_));
    EXPECT_EQ(-EINVAL, hal_->GetModelHandle(0));
    (void)Start(GENERIC, 9);
    (void)Start(KEYPHRASE, 0);
    Check(0, hal_->StartRecognition(2, 0, 0, {}), "");
    EXPECT_EQ(2, hal_->GetModelHandle(0));
    Check(0, hal_->StopRecognition(2), "Stop(2)");
    EXPECT_EQ(3, hal_->GetModelHandle(0)) << "2 is stopped, although its io handle is kept";
}

TEST_F(RequestTest, StopSwitchesTheHotwordsEraserOffWhicheverModelItIsOfAndEvenIfItFails) {
    PlayOnLoudspeaker();
    (void)Start(KEYPHRASE, 10, {.audioCapabilities = 1});
    (void)Load(GENERIC);
    Check(-EINVAL, hal_->StopRecognition(2), "",
          {"E Hal: StopRecognition: client 2 is not started yet."});
    Check(0, hal_->StartRecognition(2, 0, 11, {}), "Start(2)");
    Check(0, hal_->StopRecognition(2), "Eraser(off) Reference(off) NeuralAec(off) Stop(2)");
    Check(0, hal_->StartRecognition(2, 0, 11, {}),
          "Start(2) Reference(off) Eraser(on) NeuralAec(on)");
    Fail("Stop");
    Check(-EINVAL, hal_->StopRecognition(1), "Eraser(off) Reference(off) NeuralAec(off) Stop(1)",
          {"E RuntimeState: ToLoadState: failure due to -5",
           "E Hal: StopRecognition: Stops detection failure -22"});
    EXPECT_EQ(1, hal_->GetModelHandle(10)) << "still started";
    Check(0, hal_->StopRecognition(1), "Stop(1)");
}

TEST_F(RequestTest, OfflineRequestsChangeOnlyWhatTheFrameworkIsKnownToWant) {
    (void)Start(GENERIC, 10);
    (void)Load(GENERIC);
    Online(false);
    Check(0, TryLoad(ModelOf(KEYPHRASE, "v")), "",
          {"W Hal: LoadModel: Dsp isn't ready, restore state for 3"});
    Check(0, hal_->StartRecognition(3, 0, 20, {.captureRequested = true}), "",
          {"W Hal: StartRecognition: Dsp isn't ready, restore state for 3"});
    Check(0, hal_->ForceRecognitionEvent(3), "",
          {"W Hal: ForceRecognitionEvent: Dsp isn't ready, ignore request for 3"});
    Check(0, hal_->StopRecognition(1), "",
          {"W Hal: StopRecognition: Dsp isn't ready, restore state for 1"});
    Check(0, hal_->UnloadSoundModel(2), "",
          {"W Hal: UnloadSoundModel: Dsp not ready, just release client"});
    EXPECT_EQ(3, hal_->GetModelHandle(20));
    EXPECT_EQ("true ModelUnloaded", Field(3, "Client loaded") + " " + State(3));
    Online(true);
    EXPECT_THAT(dsp_.TakeCommands(), StartsWith("Load(2,5,model) Load(1,5,model) Start(1) Mic"));
    Detect(kHotword);
    EXPECT_TRUE(callback_->events().at(0).event.common.captureAvailable);
}

TEST_F(RequestTest, ForcedEventNeedsADetectingModel) {
    const std::string trigger = "E Client: TriggerForceRecognition: ";
    const std::string failed = "E Hal: ForceRecognitionEvent: Force trigger detection failure ";
    (void)Load(KEYPHRASE);
    Check(-EINVAL, hal_->ForceRecognitionEvent(1), "",
          {trigger + "Can't trigger force recognition when state: ModelLoaded", failed + "-22"});
    Check(0, hal_->StartRecognition(1, 0, 10, {}), "Start(1)");
    dsp_.Script({.call = "Force", .result = 5});
    Check(5, hal_->ForceRecognitionEvent(1), "Force(1)",
          {trigger + "failure due to 5", failed + "5"});
    Check(0, hal_->ForceRecognitionEvent(1), "Force(1)");
    Detect(kHotword);
    Check(0, hal_->ForceRecognitionEvent(1), "");
}

TEST_F(RequestTest, PropertiesDescribeTheLibraryThatTheDspRunsNow) {
    SoundTriggerHal::Properties properties;
    EXPECT_EQ(0, hal_->GetProperties(&properties) + hal_->GetProperties(&properties));
    Fail("Library");
    Check(-EINVAL, hal_->GetProperties(&properties), "",
          {"E Hal: GetProperties: Can't get information from DSP"});
    EXPECT_EQ(
            "Properties{implementor: Quarno Vexor team, description: Sound Trigger HAL, "
            "version: 7, uuid: 3f9c2e61-7b4d-4a85-9e07-c1d2b6a4f058, supportedModelArch: 7,arm, "
            "maxSoundModels: 3, maxKeyPhrases: 1, maxUsers: 1, recognitionModes: 9, "
            "captureTransition: true, maxBufferMs: 8000, concurrentCapture: true, "
            "triggerInEvent: false, powerConsumptionMw: 0, audioCapabilities: 1}",
            properties.toString());
    dsp_.library = {.library_version = 0xFFFFFFFE, .architecture = ""};
    EXPECT_EQ(0, hal_->GetProperties(&properties));
    EXPECT_EQ("-2,", properties.supportedModelArch);
}

// The lines by which field logs are read.
TEST_F(RequestTest, CompletedRequestsAreLogged) {
    SoundTriggerHal::Properties properties;
    EXPECT_EQ(0, TryLoad(ModelOf(KEYPHRASE, "v")) + hal_->StartRecognition(1, 0, 10, {}));
    EXPECT_EQ(0, hal_->ForceRecognitionEvent(1) + hal_->StopRecognition(1));
    EXPECT_EQ(0, hal_->UnloadSoundModel(1) + hal_->GetProperties(&properties));
    EXPECT_TRUE(log_.HasInOrder(
            {"I Client: Create: with handle: 1", "I Client: Initialize: model size: 5",
             "I Hal: LoadModel: Loaded model with handle 1",
             "I Hal: StartRecognition: Started recognition of client 1 with io_handle 10",
             "I Hal: ForceRecognitionEvent: request force trigger for client: 1",
             "I Hal: StopRecognition: Stopped recognition of client 1",
             "I Hal: UnloadSoundModel: Unload model with handle 1",
             "I Hal: GetProperties: Library and architecture = 7,arm"}));
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
