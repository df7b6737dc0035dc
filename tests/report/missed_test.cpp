#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "tests/report/written_run.h"

namespace sthal {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Kind = RecordedCall::Kind;

struct Case {
    const char* name;
    std::function<void(WrittenRun&)> tell;
    MissReason reason;
    const char* why;  // Of what a person reads.
    double likeness = 0.9;

    friend void PrintTo(const Case& one, std::ostream* out) { *out << one.name; }
};

class MissedHotwordTest : public ::testing::TestWithParam<Case> {};

TEST_P(MissedHotwordTest, SaysWhyNoEventCame) {
    WrittenRun run;
    GetParam().tell(run);

    const auto missed = run.Missed(GetParam().likeness);

    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_EQ(GetParam().reason, missed[0].reason) << missed[0].why;
    EXPECT_THAT(missed[0].why, HasSubstr(GetParam().why));
    EXPECT_EQ(2000 * kMs, missed[0].heard_ns);
}

const Case kCases[] = {
        {"NeverStarted", [](WrittenRun& run) { run.Online(); }, MissReason::kNotStarted,
         "not started"},
        {"Stopped",
         [](WrittenRun& run) {
             run.Start();
             run.Call(500, Kind::kStop);
             run.Command(500, wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
         },
         MissReason::kNotStarted, "had ended it"},
        {"StartFailed",
         [](WrittenRun& run) {
             run.Online();
             run.Call(30, Kind::kStart, -22);
         },
         MissReason::kNotStarted, "failed with -22"},
        {"DspLostTheStart",
         [](WrittenRun& run) {
             run.Start();
             run.Command(600, wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
         },
         MissReason::kNotStarted, "engine was loaded"},
        {"DspDown",
         [](WrittenRun& run) {
             run.Start();
             run.Journal(900, "life", "crash");
         },
         MissReason::kDspOffline, "was down"},
        {"HalToldOffline",
         [](WrittenRun& run) {
             run.Start();
             run.Log(900, "OnSoundCardStateChanged: false");
         },
         MissReason::kDspOffline, "told that the DSP is offline"},
        {"NeverToldOnline", [](WrittenRun&) {}, MissReason::kDspOffline, "not been told yet"},
        {"ModelForAnotherEngine",
         [](WrittenRun& run) {
             run.Online();
             run.facts.models[0].handle = 0;
             run.Command(21, wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL, -22,
                         "command 261 -> -22: bad model: made for engine 2");
         },
         MissReason::kEngineMismatch, "made for engine 2"},
        {"OnlyAnotherEngineStartedInHal",
         [](WrittenRun& run) {
             run.Start();
             run.Call(400, Kind::kStop);
             run.Call(410, Kind::kStart, 0, /*handle=*/2);
             run.DetectAndRead();
         },
         MissReason::kEngineMismatch, "other engines"},
        {"RefusedTransition",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
             run.Log(2014, "ControlThreadLoop: received Hotword recognition");
             run.Log(2014,
                     "ControlThreadLoop: requested CallbackProcessing failure from Buffering");
         },
         MissReason::kRefusedTransition, "from Buffering"},
        {"InternalRecognition",
         [](WrittenRun& run) {
             run.Start();
             run.Log(700, "ChangeStateTo: client 1 transits from A to InternalForceDetected");
         },
         MissReason::kInternalRecognition, "internal recognition"},
        {"RecordReadDuringInternalStream",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
             run.facts.streams.push_back({.is_internal = true, .opened_ns = 800 * kMs});
         },
         MissReason::kInternalRecognition, "internal recognition"},
        {"BelowThreshold", [](WrittenRun& run) { run.Start(); }, MissReason::kBelowThreshold,
         "likeness 0.65, threshold 0.7", 0.65},
        {"NotStartedAgain",
         [](WrittenRun& run) {
             run.Start();
             run.Journal(600, "detector", "hotword detected, score=0.9 frame=9000, captured");
         },
         MissReason::kNotStartedAgain, "once after each start"},
        {"StartedInTheMiddle", [](WrittenRun& run) { run.Start(1500); },
         MissReason::kStartedTooLate, "in the middle"},
        {"RecordDropped",
         [](WrittenRun& run) {
             run.Start();
             run.Detect();
             run.Journal(2011, "notification", "unread hotword record dropped by stop");
         },
         MissReason::kRecordDropped, "dropped by stop"},
        {"ReadFailed",
         [](WrittenRun& run) {
             run.Start();
             run.Detect();
             run.Log(2020, "ControlThreadLoop: read trigger event failure: -5");
         },
         MissReason::kReadFailed, "failure: -5"},
        {"StoppedMeanwhile",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
             run.Log(2014, "ControlThreadLoop: received Hotword recognition");
         },
         MissReason::kStoppedMeanwhile, "stopped or unloaded"},
        {"ListenedInVain", [](WrittenRun& run) { run.Start(); }, MissReason::kUnknown,
         "was listening"},
};

INSTANTIATE_TEST_SUITE_P(Reasons, MissedHotwordTest, ::testing::ValuesIn(kCases),
                         [](const auto& one) { return one.param.name; });

// The hotword's model was unloaded, and its handle went to another model, which is started.
TEST(MissedHotword, ModelThatHasTheHandleNowDoesNotCount) {
    WrittenRun run;
    run.Start();
    run.Call(400, Kind::kUnload);
    run.facts.models.push_back({.ns = 410 * kMs,
                                .handle = 1,
                                .name = "other",
                                .threshold = 0.7,
                                .pattern = std::vector<int16_t>(16000, 2)});
    run.Call(420, Kind::kStart);

    const auto missed = run.Missed();

    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_EQ(MissReason::kNotStarted, missed[0].reason) << missed[0].why;
}

// One second that resembles nothing else.
audio::Sound MakeSpeech() {
    audio::Sound speech;
    for (int i = 0; i < audio::kSampleRateHz; ++i) {
        speech.samples.push_back(static_cast<int16_t>(i * 7919 % 20011 - 10000));
    }
    return speech;
}

// Two models are like the same speech; the one that is started was meant.
TEST(MissedHotword, OneSpeechCountsOnce) {
    WrittenRun run;
    const audio::Sound speech = MakeSpeech();
    audio::Sound recording;
    recording.samples.assign(size_t{3} * audio::kSampleRateHz, 0);
    std::ranges::copy(speech.samples, recording.samples.begin() + 16000);
    run.facts.playbacks[0].recording = std::make_shared<audio::Sound>(recording);
    run.facts.models[0].pattern = speech.samples;
    auto shorter = run.facts.models[0];
    shorter.handle = 2;
    shorter.pattern.resize(12000);
    run.facts.models.push_back(shorter);
    run.Online();
    run.Call(30, Kind::kStart, 0, /*handle=*/2);

    const auto spoken = FindSpoken(run.facts);

    ASSERT_THAT(spoken, SizeIs(1));
    EXPECT_EQ(1U, spoken[0].model) << "the one that is started, although both fit";
    EXPECT_NEAR(16000, static_cast<double>(spoken[0].range.begin), 2);
}

TEST(MissedHotword, WhatWasSaidTooQuietlyToBeFoundIsKnownAllTheSame) {
    WrittenRun run;
    run.Start();
    const audio::Sound said = MakeSpeech();
    run.facts.models[0].pattern = said.samples;
    run.facts.playbacks[0].said = std::make_shared<audio::Sound>(said);
    run.facts.playbacks[0].said_at = 16000;

    const auto missed = ExplainMissed(run.facts, FindSpoken(run.facts));

    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_EQ(MissReason::kBelowThreshold, missed[0].reason) << missed[0].why;
    EXPECT_EQ(2000 * kMs, missed[0].heard_ns);
}

TEST(MissedHotword, DeliveredOrUnheardOnesAreNotMissed) {
    WrittenRun delivered;
    delivered.Start();
    delivered.Deliver();
    WrittenRun broken_off;
    broken_off.facts.playbacks[0].heard_ns.resize(150);

    EXPECT_THAT(delivered.Missed(), IsEmpty());
    EXPECT_THAT(broken_off.Missed(), IsEmpty()) << "nobody heard its end";
}

}  // namespace
}  // namespace sthal
