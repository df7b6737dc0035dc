#include <gtest/gtest.h>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {
namespace {

// The fact that a line states.
template <typename Kind>
Kind Said(const char* line) {
    const auto fact = ReadHalLine({.text = line});
    const Kind* const said = fact ? fact->As<Kind>() : nullptr;
    EXPECT_NE(nullptr, said) << line;
    return said == nullptr ? Kind{} : *said;
}

// The lines are literally the library's.
TEST(HalLog, LinesAreReadWithTheirValues) {
    using enum ClientState;
    (void)Said<ControlThreadStarted>("ControlThreadLoop: Enter");
    EXPECT_TRUE(Said<SoundCardReported>("OnSoundCardStateChanged: true").online);
    EXPECT_FALSE(Said<SoundCardReported>("OnSoundCardStateChanged: false").online);
    const auto loaded = Said<ClientChanged>(
            "ChangeStateTo: client 12 transits from ModelUnloaded to ModelLoaded");
    EXPECT_EQ(12, loaded.handle);
    EXPECT_EQ(kModelUnloaded, loaded.from);
    EXPECT_EQ(kModelLoaded, loaded.to);
    const auto forced = Said<ClientChanged>(
            "ChangeStateTo: client 0 transits from StartDetecting to InternalForceDetected");
    EXPECT_EQ(kStartDetecting, forced.from);
    EXPECT_EQ(kInternalForceDetected, forced.to);
    const auto read = Said<ClientChanged>(
            "ChangeStateTo: client 1 transits from CallbackProcessing to Buffering");
    EXPECT_EQ(kCallbackProcessing, read.from);
    EXPECT_EQ(kBuffering, read.to);
    EXPECT_EQ(3, Said<ClientRemoved>("UnloadSoundModel: Unload model with handle 3").handle);
    EXPECT_EQ(0, Said<ClientRemoved>("StopInternalForce: Unload internal client with 0").handle);
    (void)Said<RecordRead>("ControlThreadLoop: read trigger event with model type: 1");
    const char* const failed = "ControlThreadLoop: read trigger event failure: -19";
    EXPECT_EQ(-19, Said<RecordReadFailed>(failed).status);
    (void)Said<RecordClaimed>(
            "ControlThreadLoop: received Hotword recognition with payload: score=0.91 frame=7");
    const char* const refused =
            "ControlThreadLoop: requested CallbackProcessing failure from Buffering";
    EXPECT_EQ(kBuffering, Said<EventRefused>(refused).state);
}

TEST(HalLog, OtherLinesStateNothing) {
    for (const char* line : {"ControlThreadLoop: exit",
                             "ChangeStateTo: client 1 transits from ModelUnloaded to Elsewhere",
                             "ChangeStateTo: client one transits from ModelUnloaded to Buffering",
                             "UnloadSoundModel: Unload model with handle ",
                             "OnSoundCardStateChanged: true, once more"}) {
        EXPECT_FALSE(ReadHalLine({.text = line})) << line;
    }
}

}  // namespace
}  // namespace sthal
