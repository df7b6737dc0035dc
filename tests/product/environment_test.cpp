// The DSP going and coming back, and what the phone around it does.
#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/audio/common/Boolean.h>

#include <initializer_list>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using ::aidl::android::media::audio::common::AudioConfigBase;
using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::audio::common::Boolean;

// What the eraser's switching consists of.
constexpr char kOn[] = "Reference(off) Eraser(on)";
constexpr char kOff[] = "Eraser(off) Reference(off)";

class EnvironmentTest : public RunningHalTest {
  protected:
    // Each: what the DSP is told.
    std::string Route(std::vector<SoundTriggerHal::RoutingEdge> edges) {
        hal_->OnRoutingGraphChanged({.edges = std::move(edges)});
        return dsp_.TakeCommands();
    }
    std::string Play(const char* usecase, std::initializer_list<int> usages) {
        SoundTriggerHal::SourceMetadata metadata;
        for (const int usage : usages) {
            metadata.tracks.push_back({.usage = static_cast<AudioUsage>(usage)});
        }
        hal_->OnSourceMetadataChanged(usecase, metadata);
        return dsp_.TakeCommands();
    }
    std::string Dock(bool connected) {
        hal_->OnDockChargerConnected(connected);
        return dsp_.TakeCommands();
    }
    std::string ReportOnline() {
        Online(true);
        return dsp_.TakeCommands();
    }
};

TEST_F(EnvironmentTest, DspThatComesBackGetsEverythingAgainInOrderButTheEraser) {
    (void)Start(KEYPHRASE, 10);
    (void)Load(GENERIC);
    PlayOnLoudspeaker();
    Online(false);
    EXPECT_EQ("ModelUnloaded ModelUnloaded", State(1) + " " + State(2));
    Forget();
    Fail("MicSwap");
    Fail("Reference");
    EXPECT_EQ(
            "Load(1,5,model) Start(1) Load(2,5,model) MicSwap(off) Reference(off) "
            "ApProcess(off) Tuning(1)",
            ReportOnline());
    EXPECT_EQ(1, log_.Count("I Hal: OnSoundCardStateChanged: true"));
}

TEST_F(EnvironmentTest, RepeatedOnlineReportIsNotFilteredAndRestoresWhatFailedBefore) {
    (void)Start(KEYPHRASE, 10);
    (void)Start(GENERIC, 11);
    (void)Dock(true);
    Online(false);
    Fail("Load(1");
    (void)ReportOnline();
    EXPECT_EQ("ModelUnloaded StartDetecting", State(1) + " " + State(2));
    EXPECT_EQ(
            "Load(1,5,model) Start(1) Stop(2) Start(2) MicSwap(off) Reference(on) ApProcess(on) "
            "Tuning(2)",
            ReportOnline());
}

TEST_F(EnvironmentTest, DockSwitchesReferenceProcessingAndTuningOncePerChange) {
    EXPECT_EQ("Reference(on) ApProcess(on) Tuning(2)", Dock(true));
    EXPECT_EQ("", Dock(true));
    EXPECT_EQ(1, log_.Count("I Hal: ProcessDockEvent: true"));
    Online(false);
    EXPECT_EQ("", Dock(false));
    EXPECT_EQ("MicSwap(off) Reference(off) ApProcess(off) Tuning(1)", ReportOnline());
}

TEST_F(EnvironmentTest, PrimaryAndHapticPlaybackCountWhileATrackOfALoudUsagePlays) {
    constexpr int kLoud[] = {1, 4, 6, 14, 16};
    (void)Start(KEYPHRASE, 10);
    for (const char* usecase : {"primary-playback", "haptic-playback"}) {
        EXPECT_EQ("", Play(usecase, {1, 14, 0})) << "not routed";
        EXPECT_EQ("", Play(usecase, {}));
        EXPECT_EQ("", Route({{usecase, "speaker"}})) << "no tracks yet";
        for (const int usage : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 12, 13, 14, 15, 16, 17, 33, 65, 1001}) {
            const bool is_loud = std::ranges::count(kLoud, usage) == 1;
            EXPECT_EQ(is_loud ? kOn : "", Play(usecase, {0, usage})) << usecase << usage;
            EXPECT_EQ(is_loud ? kOff : "", Play(usecase, {})) << usecase << usage;
        }
    }
    EXPECT_EQ(2, log_.Count("I Hal: ProcessStreamMetadata: active usage tracks: 2"));
}

TEST_F(EnvironmentTest, OnlyPlaybackOnTheLoudspeakerCountsAndAPartialGraphClearsNothing) {
    (void)Start(KEYPHRASE, 10);
    EXPECT_EQ("", Route({{"deep-buffer-playback", "bluetooth"}, {"voip-playback", "speaker"}}));
    for (const char* device : {"usb-dock", "speaker-safe", "speaker-earpiece", "speaker"}) {
        EXPECT_EQ(kOn, Route({{"compress-offload-playback", device}})) << device;
        EXPECT_EQ(kOff, Route({{"compress-offload-playback", "headset"}})) << "no edge matches";
    }
    EXPECT_EQ(kOn, Route({{"deep-buffer-playback", "speaker"}}));
    EXPECT_EQ("", Route({{"x", "y"}, {"primary-playback", "speaker"}})) << "the other keeps its";
    EXPECT_EQ("", Play("primary-playback", {}) + Play("deep-buffer-playback", {}));
    EXPECT_EQ(1, log_.Count("I Hal: ProcessStreamMetadata: active usage tracks: 0"));
    EXPECT_EQ(kOff, Route({}));
}

TEST_F(EnvironmentTest, EraserIsForStartedHotwordModelsAndTheNeuralOneForEchoAlone) {
    (void)Start(GENERIC, 9);
    for (const int capabilities : {1, 3, 0}) {
        (void)Load(KEYPHRASE);
        PlayOnLoudspeaker();
        const bool is_neural = capabilities == 1;
        Check(0, hal_->StartRecognition(2, 0, 10, {.audioCapabilities = capabilities}),
              "Start(1) "s.append(kOn).append(is_neural ? " NeuralAec(on)" : ""));
        EXPECT_EQ(std::string(kOff).append(is_neural ? " NeuralAec(off)" : ""), Route({}));
        EXPECT_EQ(0, hal_->UnloadSoundModel(2));
        EXPECT_TRUE(log_.HasInOrder({"I Hal: ProcessAecEvent: Eraser enabled ",
                                     "I Hal: ProcessAecEvent: Eraser disabled "}));
    }
}

TEST_F(EnvironmentTest, EraserWantedWhileTheDspWasOfflineIsNotSentWhenItReturns) {
    (void)Dock(true);
    (void)Start(KEYPHRASE, 10);
    Online(false);
    EXPECT_EQ("", Route({{"deep-buffer-playback", "speaker"}}));
    EXPECT_EQ("true", Field(1, "Aec enabled"));
    EXPECT_EQ("Load(1,5,model) Start(1) MicSwap(off) Reference(on) ApProcess(on) Tuning(2)",
              ReportOnline());
    EXPECT_EQ("Eraser(off) Reference(on)", Route({}));
}

TEST_F(EnvironmentTest, FanChargerSwapsTheMicrophonesAndNothingElseIsTaken) {
    SoundTriggerHal::VendorParameter fan;
    fan.id = "vendor.vexor.st.wireless.charger.with.fan";
    Check(false, hal_->SetParameter(fan));
    ASSERT_EQ(STATUS_OK, fan.ext.setParcelable(AudioConfigBase{}));
    Check(false, hal_->SetParameter(fan));
    ASSERT_EQ(STATUS_OK, fan.ext.setParcelable(Boolean{.value = true}));
    fan.id += "s";
    Check(false, hal_->SetParameter(fan));
    fan.id.pop_back();
    Check(true, hal_->SetParameter(fan), "MicSwap(on)");
    Check(true, hal_->SetParameter(fan), "");
    EXPECT_EQ(1, log_.Count("I Hal: ProcessMicSwapEvent: true"));
    EXPECT_FALSE(hal_->GetParameter(fan.id).has_value());
    Online(false);
    ASSERT_EQ(STATUS_OK, fan.ext.setParcelable(Boolean{.value = false}));
    Check(true, hal_->SetParameter(fan), "");
    EXPECT_EQ("MicSwap(off) Reference(off) ApProcess(off) Tuning(1)", ReportOnline());
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
