#include <set>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "audio/hal/utils/wakelock/wake_lock.h"
#include "tests/support/model.h"
#include "tests/support/recording_callback.h"
#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

constexpr int kIoHandle = 7;
constexpr char kHalWakeLock[] = "st-hal-hotword";

/** The whole HAL on the board, docked, with the sound card online. */
class RecoveryTest : public AdapterTest {
  protected:
    void SetUp() override {
        AdapterTest::SetUp();
        adapter_.reset();  // The HAL has its own.
        board_->SetTuningFile(TuningImage({{kDefaultMode, {TuningRecord(275, 4, {1})}},
                                           {kDockedMode, {TuningRecord(277, 4, {2})}}}));
        hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal();
        hal_->SetSoundCardState(&card_);
        EXPECT_FALSE(hal_->Initialize()) << "the card is offline at first";
        card_.Report(true);
        hal_->OnDockChargerConnected(true);
    }

    void TearDown() override {
        stream_.reset();
        card_.UnregisterListener(hal_.get());
        hal_.reset();
        AdapterTest::TearDown();
    }

    void LoadModel() {
        ASSERT_EQ(0, hal_->LoadSoundModel(ModelOf(SoundModelType::KEYPHRASE, "hotword", model_),
                                          callback_, &handle_));
    }

    void StartRecognition() { ASSERT_EQ(0, hal_->StartRecognition(handle_, 0, kIoHandle, {})); }

    // Somebody says the hotword, and the framework is told for the `count`th time.
    void SayUntilEvent(size_t count) {
        const auto audio = PatternFrames(kTemplateFirst, kTemplateFrames + 640);
        (void)board_->microphone().Play(audio);
        EXPECT_TRUE(callback_->WaitForEvents(count));
        ASSERT_EQ(count, callback_->events().size());
    }

    void OpenStream(bool is_internal_force) {
        SoundTriggerDriverOperationsBuilder builder;
        builder.hal = hal_.get();
        builder.io_handle = kIoHandle;
        builder.channel_count = 2;
        builder.is_internal_force = is_internal_force;
        stream_ = builder.Build();
        ASSERT_NE(nullptr, stream_);
    }

    std::vector<int16_t> ReadStream() {
        std::vector<int16_t> audio(2048, 0x5555);
        EXPECT_EQ(4096, stream_->Read(reinterpret_cast<unsigned char*>(audio.data()), 4096));
        return audio;
    }
    void ExpectSilence() { EXPECT_TRUE(std::vector<int16_t>(2048) == ReadStream()); }
    void ExpectAudioFrom(uint64_t frame) {
        EXPECT_TRUE(board_->microphone().Heard(frame, 1024) == ReadStream());
    }

    // Down and up again, with the sound card's reports; a stream that is open goes on reading.
    void RestartDsp() {
        board_->microphone().Stop();  // So that it is known what was heard before and after.
        crash_frame_ = board_->microphone().Position();
        board_->dsp().Crash();
        if (stream_ != nullptr) ExpectSilence();
        card_.Report(false);
        if (stream_ != nullptr) ExpectSilence();
        board_->dsp().Boot();
        board_->dsp().journal().Clear();
        card_.Report(true);
    }

    const std::vector<uint8_t> model_ = Model(kHotword, 20000);
    utils::soundcardstate::SoundCardState card_;
    const std::shared_ptr<RecordingCallback> callback_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    std::unique_ptr<SoundTriggerHal> hal_;
    std::unique_ptr<SoundTriggerDriverOperations> stream_;
    int handle_ = -1;
    uint64_t crash_frame_ = 0;
};

enum class Stage {
    kLoaded,
    kDetecting,
    kInternallyForced,
    kInternallyBuffering,
    kInsideCallback,
    kAfterCallback,
    kBuffering,
};

class RecoveryStageTest : public RecoveryTest, public ::testing::WithParamInterface<Stage> {
  protected:
    bool IsInternal() const {
        return GetParam() == Stage::kInternallyForced || GetParam() == Stage::kInternallyBuffering;
    }

    // Brings the model to the stage, and the DSP down and up again.
    void RestartDspInStage() {
        const Stage stage = GetParam();
        ASSERT_NO_FATAL_FAILURE(LoadModel());
        if (stage != Stage::kLoaded) {
            ASSERT_NO_FATAL_FAILURE(StartRecognition());
        }
        if (IsInternal()) {
            ASSERT_NO_FATAL_FAILURE(OpenStream(true));
        }
        if (stage == Stage::kInternallyBuffering) {
            EXPECT_TRUE(stream_->Start());
        }
        if (stage == Stage::kInsideCallback) {
            callback_->SetAction([this](int32_t) { RestartDsp(); });
        }
        if (stage >= Stage::kInsideCallback) {
            ASSERT_NO_FATAL_FAILURE(SayUntilEvent(1));
        }
        if (stage == Stage::kInsideCallback) {
            callback_->SetAction({});
            return;
        }
        if (stage == Stage::kBuffering) {
            ASSERT_NO_FATAL_FAILURE(OpenStream(false));
            EXPECT_TRUE(stream_->Start());
            ExpectAudioFrom(0);
        }
        RestartDsp();
    }
};

TEST_P(RecoveryStageTest, DspThatCrashedIsPutToWorkAgainWithoutTheFrameworkNoticing) {
    ASSERT_NO_FATAL_FAILURE(RestartDspInStage());
    const bool was_started = GetParam() != Stage::kLoaded;

    std::vector<uint32_t> sent = {260, 260, 261, 227, 343, 325, 339, 277};
    if (!was_started) std::erase(sent, 227U);
    EXPECT_EQ(sent, TakeIds()) << "the model, its start, and the environment in this order";
    EXPECT_EQ(model_, board_->dsp().model_bytes(Engine::kHotword));
    EXPECT_EQ(was_started, board_->dsp().engine(Engine::kHotword).detecting);
    EXPECT_EQ(2U, board_->dsp().settings().reference_source) << "docked, as before";
    EXPECT_TRUE(board_->dsp().settings().ap_process_with_dock);
    EXPECT_TRUE(board_->wake_locks().IsHeld(kHalWakeLock));

    if (!was_started) {
        ASSERT_NO_FATAL_FAILURE(StartRecognition());
    }
    if (IsInternal()) {
        ExpectSilence();  // Nothing is captured any more.
        EXPECT_TRUE(stream_->Stop());
    }
    ASSERT_NO_FATAL_FAILURE(SayUntilEvent(GetParam() >= Stage::kInsideCallback ? 2 : 1));
    if (GetParam() != Stage::kBuffering) {
        ASSERT_NO_FATAL_FAILURE(OpenStream(false));
        EXPECT_TRUE(stream_->Start());
    }
    ExpectAudioFrom(crash_frame_);
}

INSTANTIATE_TEST_SUITE_P(, RecoveryStageTest,
                         ::testing::Values(Stage::kLoaded, Stage::kDetecting,
                                           Stage::kInternallyForced, Stage::kInternallyBuffering,
                                           Stage::kInsideCallback, Stage::kAfterCallback,
                                           Stage::kBuffering));

TEST_F(RecoveryTest, RequestsMadeDuringTheOutageAreCarriedOutAfterIt) {
    board_->dsp().Crash();
    card_.Report(false);
    ASSERT_NO_FATAL_FAILURE(LoadModel());
    ASSERT_NO_FATAL_FAILURE(StartRecognition());
    hal_->OnDockChargerConnected(false);
    card_.Report(true);  // Too early: the DSP is still down.
    card_.Report(false);
    board_->dsp().Boot();
    card_.Report(true);

    EXPECT_EQ(0U, board_->dsp().settings().reference_source);
    const std::vector<std::pair<uint32_t, int32_t>> undocked = {{275, 1}};
    EXPECT_EQ(undocked, board_->dsp().settings().tuning);
    ASSERT_NO_FATAL_FAILURE(SayUntilEvent(1));
}

TEST_F(RecoveryTest, WakeLockIsHeldWhileDockedAndGivenBackAtBothEnds) {
    EXPECT_EQ(std::set<std::string>{kHalWakeLock}, board_->wake_locks().Held());
    hal_->OnDockChargerConnected(false);
    EXPECT_FALSE(board_->wake_locks().IsHeld(kHalWakeLock));
    hal_->OnDockChargerConnected(true);
    card_.UnregisterListener(hal_.get());
    hal_.reset();
    EXPECT_FALSE(board_->wake_locks().IsHeld(kHalWakeLock)) << "after the end of the HAL";

    EXPECT_EQ(0, board_->wake_locks().Acquire(kHalWakeLock));  // By one that died docked.
    hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal();
    (void)hal_->Initialize();
    EXPECT_FALSE(board_->wake_locks().IsHeld(kHalWakeLock));
}

TEST_F(AdapterTest, WakeLockIsHeldOrFreeAsTheKernelHasIt) {
    utils::wakelock::WakeLock lock("test-lock");
    const auto expect_held = [&](bool held) {
        EXPECT_EQ(held, lock.is_held());
        EXPECT_EQ(held, board_->wake_locks().IsHeld("test-lock"));
    };
    const size_t written = AddFault("on wake_unlock write delay=0");
    for (int i = 0; i < 2; ++i) lock.Release();
    EXPECT_EQ(1U, board_->faults().Fired(written)) << "once, as it might have been left over";
    EXPECT_THAT(log_.Take(), ElementsAre()) << "usually it is not";

    SetFaults(
            {"on wake_lock write times=1 errno=EACCES", "on wake_unlock write times=1 errno=EIO"});
    lock.Acquire();
    expect_held(false);
    EXPECT_EQ(1U, log_.Take().size()) << "of the refusal";
    lock.Acquire();
    expect_held(true);
    lock.Release();
    expect_held(true);
    EXPECT_EQ(1U, log_.Take().size()) << "of the refusal";
    lock.Release();
    expect_held(false);
    EXPECT_THAT(log_.Take(), ElementsAre());
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
