#include "tests/contract/restart_loop.h"

#include <android-base/logging.h>

#include "tests/support/simple_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

/** On a DSP in memory, where a call takes next to no time. */
class RestartLoopTest : public ::testing::Test {
  protected:
    RestartLoopTest() {
        ::android::base::SetMinimumLogSeverity(::android::base::FATAL);
        hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal(dsp_.MakeAdapter());
        (void)hal_->Initialize();
        hal_->OnSoundCardStateChanged(true);
    }
    ~RestartLoopTest() override {
        hal_.reset();
        ::android::base::SetMinimumLogSeverity(::android::base::INFO);
    }

    RestartLoopParts Parts(SoundTriggerHalClient::SoundModelType type) {
        const int engine = type == SoundTriggerHalClient::SoundModelType::KEYPHRASE ? 1 : 2;
        return {.rounds = 10'000,
                .trigger = [=, this] { dsp_.With([=](SimpleDsp& dsp) { dsp.Detect(engine); }); },
                .next_payload = [this] { return std::to_string(++starts_); },
                .load =
                        [type](FrameworkMonitor& monitor, auto callback) {
                            const std::vector<uint8_t> bytes = {1, 2, 3};
                            return LoadModel(monitor, type, bytes, "model", std::move(callback));
                        }};
    }

    SharedSimpleDsp dsp_;
    std::unique_ptr<SoundTriggerHal> hal_;
    int starts_ = 0;
};

TEST_F(RestartLoopTest, StartedAnewAfterAStopAModelNeverGetsAnOldDetection) {
    RestartLoop(hal_.get(), Parts(SoundTriggerHalClient::SoundModelType::KEYPHRASE)).Run();
}

TEST_F(RestartLoopTest, LoadedAnewAfterAnUnloadAModelNeverGetsAnOldDetection) {
    RestartLoopParts parts = Parts(SoundTriggerHalClient::SoundModelType::GENERIC);
    parts.rounds = 3000;
    parts.is_unloading = true;

    RestartLoop(hal_.get(), parts).Run();
}

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
