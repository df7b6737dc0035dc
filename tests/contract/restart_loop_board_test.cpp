#include <android-base/logging.h>

#include <array>

#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/board/board_fixture.h"
#include "tests/contract/restart_loop.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

class RestartLoopBoardTest : public ::virtual_dsp::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        ::android::base::SetMinimumLogSeverity(::android::base::FATAL);
        hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal();
        (void)hal_->Initialize();
        hal_->OnSoundCardStateChanged(true);
    }
    void TearDown() override {
        hal_.reset();
        ::android::base::SetMinimumLogSeverity(::android::base::INFO);
    }

    // One more frame of silence, so that what is detected from now on says so.
    std::string NextPayload() {
        board_->dsp().Hear(std::array<int16_t, 2>{}, ::virtual_dsp::BoottimeNow());
        return "forced frame=" + std::to_string(frames_++);
    }

    std::unique_ptr<SoundTriggerHal> hal_;
    uint64_t frames_ = 0;
};

TEST_F(RestartLoopBoardTest, StartedAnewAfterAStopAModelNeverGetsAnOldDetection) {
    const std::vector<uint8_t> model =
            ::virtual_dsp::BuildSoundModel({::virtual_dsp::Engine::kAmbientMusic, 0.7F,
                                            ::virtual_dsp::PatternChannel(0, 1600, 0)});

    RestartLoop loop(
            hal_.get(),
            {.rounds = 500,
             .trigger =
                     [this] {
                         std::vector<uint8_t> reply;
                         (void)board_->dsp().Execute(
                                 ::virtual_dsp::Command(
                                         zyl::CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION),
                                 &reply);
                     },
             .next_payload = [this] { return NextPayload(); },
             .load =
                     [&](FrameworkMonitor& monitor, auto callback) {
                         return LoadModel(monitor, SoundTriggerHalClient::SoundModelType::GENERIC,
                                          model, "model", std::move(callback));
                     }});
    loop.Run();
}

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
