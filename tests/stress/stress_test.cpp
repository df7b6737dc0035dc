// Everything at once: eight threads of framework calls, environment events, captures and dumps
// against a storm of detections and restarts of the DSP. What ThreadSanitizer has to say of it is
// half of the test.
#include <android-base/logging.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "tests/contract/restart_loop.h"
#include "tests/support/hal_driver.h"
#include "tests/support/simple_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using Kind = Step::Kind;
using Rule = FrameworkMonitor::Rule;
using SoundModelType = SoundTriggerHalClient::SoundModelType;

constexpr std::chrono::seconds kDuration{3};

class StressTest : public ::testing::Test {
  protected:
    StressTest() {
        ::android::base::SetMinimumLogSeverity(::android::base::FATAL);
        dsp_.MakeSlow();
        (void)hal_->Initialize();
        Report(Kind::kOnline, true);
    }
    ~StressTest() override { ::android::base::SetMinimumLogSeverity(::android::base::INFO); }

    void Report(Kind kind, int value) { EXPECT_EQ(0, driver_.Apply({kind, value}).value_or(0)); }

    // Each: one round of a thread, over and over until the time is up.
    using Round = std::function<void(std::minstd_rand&)>;
    Round FrameworkRound(SoundModelType type, int io_handle);
    void DumpRound(std::minstd_rand&);
    void CaptureRound(std::minstd_rand& random);
    void EnvironmentRound(std::minstd_rand& random);
    void ParameterRound(std::minstd_rand& random);
    void RestartRound(std::minstd_rand& random);

    SharedSimpleDsp dsp_;
    const std::shared_ptr<RecordingCallback> callback_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    HalDriver driver_{SoundTriggerHalBuilder::BuildSoundTriggerHal(dsp_.MakeAdapter()), nullptr,
                      callback_};
    SoundTriggerHal* const hal_ = &driver_.hal();
    FrameworkMonitor* const monitor_ = &driver_.monitor();
    std::atomic<uint64_t> events_{0};
};

// A framework that keeps the rules: one load, then starts, stops and forced events, then an unload.
StressTest::Round StressTest::FrameworkRound(SoundModelType type, int io_handle) {
    return [=, this](std::minstd_rand& random) {
        const std::vector<uint8_t> bytes(100, static_cast<uint8_t>(io_handle));
        const int handle =
                LoadModel(*monitor_, type, bytes, "model " + std::to_string(io_handle), callback_);
        if (handle < 0) return;
        for (int k = 0; k < 8; ++k) {
            (void)monitor_->StartRecognition(handle, io_handle, {});
            if (random() % 2 == 0) (void)monitor_->ForceRecognitionEvent(handle);
            if (random() % 4 == 0) std::this_thread::yield();
            (void)monitor_->StopRecognition(handle);
        }
        events_ += callback_->Take().size();
        (void)monitor_->UnloadSoundModel(handle);
    };
}

void StressTest::DumpRound(std::minstd_rand&) {
    const ::ndk::ScopedFileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    hal_->Dump(SoundTriggerHal::DumpsysInfo(nowhere.get()));
    SoundTriggerHal::Properties properties;
    (void)hal_->GetProperties(&properties);
    EXPECT_LE(hal_->GetModelHandle(1), 3);
}

// Every other capture is one without a detection.
void StressTest::CaptureRound(std::minstd_rand& random) {
    SoundTriggerDriverOperationsBuilder builder;
    builder.hal = hal_;
    builder.io_handle = 1;
    builder.channel_count = 2;
    builder.is_internal_force = random() % 2 == 0;
    const auto stream = builder.Build();
    if (!stream) return;
    (void)stream->Start();
    std::array<unsigned char, 4096> audio;
    for (int k = 0; k < 4; ++k) {
        (void)stream->Read(audio.data(), static_cast<int>(audio.size()));
        long frames = 0;
        long time_ns = 0;
        (void)stream->GetPosition(frames, time_ns);
    }
    (void)stream->Stop();
}

void StressTest::EnvironmentRound(std::minstd_rand& random) {
    Report(Kind::kDock, random() % 2);
    Report(Kind::kRoute, random() % 2);
}

void StressTest::ParameterRound(std::minstd_rand& random) {
    (void)driver_.Apply({Kind::kMetadata, 0, static_cast<int>(random() % 2)});
    Report(Kind::kMicSwap, random() % 2);
}

void StressTest::RestartRound(std::minstd_rand& random) {
    dsp_.With([](SimpleDsp& dsp) { dsp.Crash(); });
    if (random() % 2 == 0) std::this_thread::yield();
    Report(Kind::kOnline, false);
    dsp_.With([](SimpleDsp& dsp) { dsp.Boot(); });
    Report(Kind::kOnline, true);
    // Some time for the others to find a DSP.
    for (auto turns = random() % 400; turns > 0; --turns) std::this_thread::yield();
}

TEST_F(StressTest, EightThreadsLeaveAWorkingHalAndAContentFramework) {
    const std::array<Round, 8> rounds = {
            FrameworkRound(SoundModelType::KEYPHRASE, 1),
            FrameworkRound(SoundModelType::GENERIC, 2),
            [this](std::minstd_rand& random) {
                dsp_.With([&](SimpleDsp& dsp) { dsp.Detect(1 + static_cast<int>(random() % 2)); });
                std::this_thread::yield();
            },
            [this](std::minstd_rand& random) { DumpRound(random); },
            [this](std::minstd_rand& random) { CaptureRound(random); },
            [this](std::minstd_rand& random) { EnvironmentRound(random); },
            [this](std::minstd_rand& random) { ParameterRound(random); },
            [this](std::minstd_rand& random) { RestartRound(random); },
    };
    const auto end = std::chrono::steady_clock::now() + kDuration;
    std::vector<std::thread> threads;
    for (const Round& round : rounds) {
        threads.emplace_back([&round, end, seed = threads.size() + 1] {
            std::minstd_rand random(static_cast<uint32_t>(seed));
            while (std::chrono::steady_clock::now() < end) round(random);
        });
    }
    for (std::thread& thread : threads) thread.join();

    for (const auto& violation : monitor_->violations()) {
        // What is started is started anew with the DSP, whether or not its event has come.
        if (violation.rule == Rule::kSecondEventAfterDspRestart) continue;
        ADD_FAILURE() << violation;
    }
    EXPECT_EQ(0, dsp_.overlaps()) << "calls to the DSP that the HAL has to make under its lock";
    EXPECT_GT(events_, 0U) << "nothing was detected";

    // And the HAL works as on the first day.
    (void)hal_->StopInternalForceRecognition();
    for (int handle = 1; handle <= 3; ++handle) (void)monitor_->UnloadSoundModel(handle);
    (void)callback_->Take();
    const std::vector<uint8_t> bytes = {1, 2, 3};
    const int handle = LoadModel(*monitor_, SoundModelType::GENERIC, bytes, "last", callback_);
    EXPECT_EQ(1, handle);
    EXPECT_EQ(0, monitor_->StartRecognition(handle, 9, {}));
    dsp_.With([](SimpleDsp& dsp) { dsp.Detect(2); });
    EXPECT_TRUE(callback_->WaitForEvents(1)) << "no event any more";
}

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
