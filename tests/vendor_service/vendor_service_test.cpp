// The framework's interface from above, on the virtual board: what a service makes of the HAL.
#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwGlobalCallback.h>
#include <aidl/android/media/soundtrigger/SoundModelType.h>
#include <aidl/android/media/soundtrigger/Status.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <future>

#include "examples/vendor_service/sound_trigger_service.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/board/board_fixture.h"
#include "tests/support/recording_callback.h"

namespace vendor_service_example {

namespace {

using namespace ::aidl::android::media::soundtrigger;
using ::ndk::ScopedAStatus;
using ::ndk::SharedRefBase;
using ::vendor::quarno::brindlecove::audio::hal::soundtrigger::RecordingCallback;
using ::virtual_dsp::Engine;

// The stretch of the microphone's pattern that is the hotword. Its capture begins 500 ms earlier.
constexpr uint64_t kHotwordFirst = 16000;
constexpr uint64_t kHotwordFrames = 3200;
constexpr uint64_t kCaptureFirst = kHotwordFirst - 8000;
constexpr int kIoHandle = 13;

class GlobalCallback
    : public ::aidl::android::hardware::soundtrigger3::BnSoundTriggerHwGlobalCallback {
  public:
    ScopedAStatus onResourcesAvailable() override {
        ++calls;
        return ScopedAStatus::ok();
    }

    std::atomic<int> calls{0};
};

// "ok", the exception's number, or the service's own error by its name.
std::string Outcome(const ScopedAStatus& status) {
    if (status.isOk()) return "ok";
    if (status.getExceptionCode() != EX_SERVICE_SPECIFIC) {
        return std::to_string(status.getExceptionCode());
    }
    return toString(static_cast<Status>(status.getServiceSpecificError()));
}

const std::string kIllegalArgument = std::to_string(EX_ILLEGAL_ARGUMENT);
const std::string kIllegalState = std::to_string(EX_ILLEGAL_STATE);

class VendorServiceTest : public ::virtual_dsp::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        monitor_.Report(true);
        service_ = SharedRefBase::make<SoundTriggerService>(&monitor_);
        ASSERT_TRUE(service_->registerGlobalCallback(resources_).isOk());
    }

    void TearDown() override {
        service_.reset();
        monitor_.Report(true);  // Nobody listens any more.
        board_.reset();
    }

    static SoundModel Model(const std::string& uuid, const std::vector<uint8_t>& bytes) {
        SoundModel model;
        model.type = SoundModelType::KEYPHRASE;
        model.vendorUuid = uuid;
        model.dataSize = static_cast<int32_t>(bytes.size());
        model.data.set(memfd_create("model", MFD_CLOEXEC));
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  pwrite(model.data.get(), bytes.data(), bytes.size(), 0));
        return model;
    }

    static SoundModel HotwordModel(const std::string& uuid) {
        return Model(uuid, ::virtual_dsp::BuildSoundModel(
                                   {Engine::kHotword, 0.7F,
                                    ::virtual_dsp::PatternChannel(kHotwordFirst, kHotwordFrames,
                                                                  /*channel=*/0)}));
    }

    std::string Load(const SoundModel& model, int32_t* handle) {
        return Outcome(service_->loadSoundModel(model, events_, handle));
    }

    SoundTriggerService::SoundCardState monitor_;
    const std::shared_ptr<RecordingCallback> events_ = SharedRefBase::make<RecordingCallback>();
    const std::shared_ptr<GlobalCallback> resources_ = SharedRefBase::make<GlobalCallback>();
    std::shared_ptr<SoundTriggerService> service_;
};

TEST_F(VendorServiceTest, SpokenHotwordReachesTheFrameworkAndIsCaptured) {
    PhraseSoundModel model;
    model.common = HotwordModel("one");
    int32_t handle = -1;
    ASSERT_EQ("ok", Outcome(service_->loadPhraseSoundModel(model, events_, &handle)));
    RecognitionConfig config;
    config.captureRequested = true;
    ASSERT_EQ("ok", Outcome(service_->startRecognition(handle, 0, kIoHandle, config)));

    (void)board_->microphone().Play(::virtual_dsp::PatternFrames(0, 48000));

    EXPECT_TRUE(events_->WaitForEvents(1));
    ASSERT_EQ(1u, events_->events().size());
    EXPECT_EQ(handle, events_->events()[0].handle);
    EXPECT_TRUE(events_->events()[0].is_phrase);
    EXPECT_TRUE(events_->events()[0].event.common.captureAvailable);
    const auto stream = service_->OpenCapture(kIoHandle, /*channels=*/2, /*zero_latency=*/false);
    ASSERT_TRUE(stream) << "no capture of a detection that was reported";
    std::vector<int16_t> audio(static_cast<size_t>(stream->GetBulkSize()) * 2);
    const int bytes = stream->GetBulkSize() * stream->GetFrameSize();
    EXPECT_EQ(bytes, stream->Read(reinterpret_cast<unsigned char*>(audio.data()), bytes));
    EXPECT_EQ(::virtual_dsp::PatternFrames(kCaptureFirst, audio.size() / 2), audio);
    EXPECT_FALSE(service_->OpenCapture(kIoHandle, 2, false)) << "a detection serves one stream";

    EXPECT_EQ("ok", Outcome(service_->stopRecognition(handle)));
    EXPECT_EQ("ok", Outcome(service_->unloadSoundModel(handle)));
    EXPECT_FALSE(board_->dsp().engine(Engine::kHotword).model_loaded);
    EXPECT_EQ(1, resources_->calls);
}

TEST_F(VendorServiceTest, MistakenCallsAreToldFromCallsThatFail) {
    int32_t handle = -1;
    SoundModel untyped = HotwordModel("untyped");
    untyped.type = SoundModelType::INVALID;
    EXPECT_EQ(kIllegalArgument, Load(untyped, &handle));
    EXPECT_EQ(kIllegalArgument, Load(Model("empty", {}), &handle));
    EXPECT_EQ(kIllegalArgument,
              Outcome(service_->loadSoundModel(HotwordModel("x"), nullptr, &handle)));
    EXPECT_EQ("INTERNAL_ERROR", Load(Model("garbage", std::vector<uint8_t>(100)), &handle));
    ASSERT_EQ("ok", Load(HotwordModel("garbage"), &handle)) << "the failed load left its uuid";

    EXPECT_EQ(kIllegalState, Outcome(service_->forceRecognitionEvent(handle)));
    EXPECT_EQ("ok", Outcome(service_->stopRecognition(handle))) << "it is not started as it is";
    std::optional<ModelParameterRange> range = ModelParameterRange{};
    int32_t value = 0;
    const auto factor = ModelParameter::THRESHOLD_FACTOR;
    EXPECT_EQ("ok", Outcome(service_->queryParameter(handle, factor, &range)));
    EXPECT_FALSE(range);
    EXPECT_EQ("OPERATION_NOT_SUPPORTED", Outcome(service_->getParameter(handle, factor, &value)));
    EXPECT_EQ("OPERATION_NOT_SUPPORTED", Outcome(service_->setParameter(handle, factor, value)));

    // 0 is the handle of the HAL's own client, which a zero latency capture brings about.
    ASSERT_EQ("ok", Outcome(service_->unloadSoundModel(handle)));
    const auto stream = service_->OpenCapture(kIoHandle, 2, /*zero_latency=*/true);
    ASSERT_TRUE(stream);
    for (const int32_t unknown : {0, handle}) {
        EXPECT_EQ(kIllegalArgument, Outcome(service_->startRecognition(unknown, 0, 1, {})));
        EXPECT_EQ(kIllegalArgument, Outcome(service_->stopRecognition(unknown)));
        EXPECT_EQ(kIllegalArgument, Outcome(service_->forceRecognitionEvent(unknown)));
        EXPECT_EQ(kIllegalArgument, Outcome(service_->unloadSoundModel(unknown)));
    }
}

TEST_F(VendorServiceTest, FrameworkIsToldThatThereIsNoRoomAndWhenThereIsAgain) {
    int32_t handles[4] = {};
    for (const int i : {0, 1, 2}) {
        ASSERT_EQ("ok", Load(HotwordModel("model " + std::to_string(i)), &handles[i]));
    }
    EXPECT_EQ("RESOURCE_CONTENTION", Load(HotwordModel("model 3"), &handles[3]));
    EXPECT_EQ(0, resources_->calls);

    ASSERT_EQ("ok", Outcome(service_->unloadSoundModel(handles[1])));

    EXPECT_EQ(1, resources_->calls);
    EXPECT_EQ("RESOURCE_CONTENTION", Load(HotwordModel("model 0"), &handles[3])) << "loaded twice";
    EXPECT_EQ("ok", Load(HotwordModel("model 3"), &handles[3]));
    EXPECT_EQ(handles[1], handles[3]);
    EXPECT_EQ("ok", Outcome(service_->unloadSoundModel(handles[3])));
}

TEST_F(VendorServiceTest, DspThatCrashesFailsCallsAndLeavesEverythingToBeRepeated) {
    Properties properties;
    ASSERT_EQ("ok", Outcome(service_->getProperties(&properties)));
    int32_t handle = -1;
    ASSERT_EQ("ok", Load(HotwordModel("one"), &handle));

    board_->dsp().Crash();  // And the monitor has not noticed yet.
    EXPECT_EQ("INTERNAL_ERROR", Outcome(service_->startRecognition(handle, 0, kIoHandle, {})));
    EXPECT_EQ("INTERNAL_ERROR", Outcome(service_->unloadSoundModel(handle)));
    Properties repeated;
    EXPECT_EQ("ok", Outcome(service_->getProperties(&repeated)));
    EXPECT_EQ(properties, repeated);
    EXPECT_EQ(0, resources_->calls);

    monitor_.Report(false);
    board_->dsp().Boot();
    monitor_.Report(true);
    EXPECT_EQ("ok", Outcome(service_->startRecognition(handle, 0, kIoHandle, {})));
    EXPECT_TRUE(board_->dsp().engine(Engine::kHotword).detecting);
    EXPECT_EQ("ok", Outcome(service_->unloadSoundModel(handle)));
}

TEST_F(VendorServiceTest, ModelLostToARefusedCaptureIsToldToTheFramework) {
    int32_t handle = -1;
    ASSERT_EQ("ok", Load(HotwordModel("one"), &handle));
    ASSERT_EQ("ok", Outcome(service_->startRecognition(handle, 0, kIoHandle, {})));
    EXPECT_FALSE(service_->OpenCapture(kIoHandle, 2, /*zero_latency=*/false));
    EXPECT_TRUE(events_->unloaded().empty()) << "no detection to capture is not the model's end";

    AddFault("on command reply id=267 times=1 errno=EIO");
    EXPECT_FALSE(service_->OpenCapture(kIoHandle, 2, /*zero_latency=*/true));

    EXPECT_EQ(std::vector<int>{handle}, events_->unloaded());
    EXPECT_EQ(1, resources_->calls);
    EXPECT_EQ(kIllegalArgument, Outcome(service_->unloadSoundModel(handle)));
    EXPECT_EQ("ok", Load(HotwordModel("one"), &handle)) << "its uuid is free again";
    EXPECT_EQ("ok", Outcome(service_->startRecognition(handle, 0, kIoHandle, {})));
}

TEST_F(VendorServiceTest, ModelThatIsBeingUnloadedIsNotTakenForLost) {
    int32_t handle = -1;
    ASSERT_EQ("ok", Load(HotwordModel("one"), &handle));
    ASSERT_EQ("ok", Outcome(service_->startRecognition(handle, 0, kIoHandle, {})));
    AddFault("on command reply id=267 errno=EIO");
    const size_t unloading = AddFault("on command reply id=262 times=1 delay=1");
    std::promise<void> delivering;
    std::promise<void> refused;
    events_->SetAction([&](int) {
        delivering.set_value();
        refused.get_future().wait();
    });
    ASSERT_EQ("ok", Outcome(service_->forceRecognitionEvent(handle)));
    delivering.get_future().wait();

    auto unload = std::async(std::launch::async,
                             [&] { return Outcome(service_->unloadSoundModel(handle)); });
    EXPECT_TRUE(board_->faults().WaitUntilFired(unloading, 1, ::virtual_dsp::kDeadline));
    // Gets the HAL's lock while the unload waits for the event, which it does without the lock.
    EXPECT_FALSE(service_->OpenCapture(kIoHandle, 2, /*zero_latency=*/true));
    refused.set_value();

    EXPECT_EQ("ok", unload.get());
    EXPECT_TRUE(events_->unloaded().empty());
    EXPECT_EQ(1, resources_->calls);
}

TEST_F(VendorServiceTest, DumpIsSelectedByItsArguments) {
    const ::ndk::ScopedFileDescriptor file(memfd_create("dump", MFD_CLOEXEC));
    const char* args[] = {"StHal::SoundTriggerHal"};
    EXPECT_EQ(STATUS_OK, service_->dump(file.get(), args, 1));
    args[0] = "StHal::Client";
    EXPECT_EQ(STATUS_OK, service_->dump(file.get(), args, 1));

    char text[1024] = {};
    ASSERT_LT(0, pread(file.get(), text, sizeof(text) - 1, 0));
    EXPECT_STREQ("is dsp online: 1\nmic swap enabled: 0\ndocked: 0\nActive usage count: 0\n", text);
}

}  // namespace

}  // namespace vendor_service_example
