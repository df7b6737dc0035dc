// How long each operation takes with a DSP that has stopped answering before it began.
#include <algorithm>

#include "tests/faults/board_rig.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::milliseconds;

// The framework gives a call 3000 ms. Less than a third of it is to be the DSP's.
constexpr milliseconds kLimit{1000};

// 64 chunks: nobody may wait for each of them.
constexpr size_t kLargeModelBytes = 1024 * 1024;

struct SilentRow {
    const char* operation;  // As the public header names it.
    const char* setup;
    const char* request;
};

constexpr SilentRow kSilentRows[] = {
        {"Initialize", "built", "initialize"},
        {"GetProperties", "", "properties"},
        {"LoadSoundModel", "", "load"},
        {"LoadSoundModel", "internal", "load"},
        {"UnloadSoundModel", "load", "unload"},
        {"UnloadSoundModel", "load, start, speaker", "unload"},
        {"UnloadSoundModel", "load, start, internal", "unload"},
        {"StartRecognition", "load", "start"},
        {"StartRecognition", "load, start, speaker, internal", "start"},
        {"StopRecognition", "load, start, speaker", "stop"},
        {"StopRecognition", "load, start, speaker, internal", "stop"},
        {"ForceRecognitionEvent", "load, start", "force"},
        {"InternalForceRecognition", "", "internal"},
        {"InternalForceRecognition", "load, start, speaker", "internal"},
        {"StopInternalForceRecognition", "internal", "stop internal"},
        {"StopInternalForceRecognition", "load, start, speaker, internal", "stop internal"},
        {"StartBufferingByIoHandle", "load, start, detect", "buffer"},
        {"ReadBuffer", "load, start, detect, buffer", "read"},
        {"ReadBuffer", "load music, start music, detect music, buffer music", "read music"},
        {"OnSoundCardStateChanged(true)", "offline, load, start, dock, speaker", "online"},
        {"OnSoundCardStateChanged(true)",
         "offline, load music, load, load, start, start music, dock, speaker", "online"},
        {"OnSoundCardStateChanged(false)", "load, start", "offline"},
        {"OnDockChargerConnected", "load, start", "dock"},
        {"OnRoutingGraphChanged", "load, start", "speaker"},
        {"SetParameter", "", "fan"},
};

class SilentDspTest : public BoardRigTest, public ::testing::WithParamInterface<size_t> {
  protected:
    static void SetUpTestSuite() {
        ResultTables::Get().Begin("A DSP that is silent from the start",
                                  {"Operation", "From", "Answers never", "Devices gone"});
    }

    void SetUp() override { tuning_ = TuningOf({275, 277, 279, 297}); }

    static const SilentRow& row() { return kSilentRows[GetParam()]; }

    // How long the row's request takes after `spoil`, whose result lasts as long as the request.
    // Tried again where it takes too long: on a busy machine anything may, once.
    template <typename Spoil>
    milliseconds Measure(milliseconds limit, Spoil spoil) {
        milliseconds took{0};
        for (int attempt = 0; attempt < 3; ++attempt) {
            NewRig(kLargeModelBytes);
            rig_->Reach(row().setup);
            [[maybe_unused]] const auto spoilt = spoil();
            took = rig_->CarryOutUnpredicted(row().request).took;
            if (took < limit) break;
        }
        EXPECT_LT(took, limit) << row().operation << " from " << row().setup;
        return took;
    }
};

TEST_P(SilentDspTest, EveryOperationEndsInLessThanASecond) {
    const milliseconds silent = Measure(kLimit, [this] {
        AddFaults("on command reply hang\non hotword_pcm poll hang\non ambient_pcm poll hang");
        return 0;
    });
    const milliseconds gone = Measure(3 * kLimit, [] {
        std::vector<std::unique_ptr<MissingNode>> missing;
        for (const char* path :
             {zyl::kCommandDevice, zyl::kModelDataDevice, zyl::kHotwordPcmDevice,
              zyl::kAmbientPcmDevice, zyl::kNotificationDevice, zyl::kClockNode}) {
            missing.push_back(std::make_unique<MissingNode>(path));
        }
        return missing;
    });
    ResultTables::Get().Add({row().operation, *row().setup == '\0' ? "idle" : row().setup,
                             Milliseconds(silent), Milliseconds(gone)});
}

INSTANTIATE_TEST_SUITE_P(, SilentDspTest, ::testing::Range<size_t>(0, std::size(kSilentRows)));

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
