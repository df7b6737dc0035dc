#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "tests/report/written_run.h"
#include "tools/sthal/output/finding_texts.h"

namespace sthal {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using virtual_dsp::Engine;
using virtual_dsp::PowerChanged;
using virtual_dsp::RecordDropped;
using virtual_dsp::VoidedBy;
using Why = MissReason::Kind;

struct Case {
    const char* name;
    std::function<void(WrittenRun&)> tell;
    Why reason;
    const char* why;  // Of what a person reads.
    double correlation = 0.9;

    friend void PrintTo(const Case& one, std::ostream* out) { *out << one.name; }
};

class MissedHotwordTest : public ::testing::TestWithParam<Case> {};

TEST_P(MissedHotwordTest, SaysWhyNoEventCame) {
    WrittenRun run;
    GetParam().tell(run);

    const auto missed = run.Missed(GetParam().correlation);

    ASSERT_THAT(missed, SizeIs(1));
    const std::string text = MissedText(missed[0], run.facts);
    EXPECT_EQ(GetParam().reason, missed[0].reason.kind) << text;
    EXPECT_THAT(text, HasSubstr(GetParam().why));
    EXPECT_EQ(2000 * kMs, missed[0].heard_ns);
}

const Case kCases[] = {
        {"NeverStarted", [](WrittenRun& run) { run.Online(); }, Why::kNotStarted, "not started"},
        {"Stopped",
         [](WrittenRun& run) {
             run.Start();
             run.Call(500, Operation::kStopRecognition);
             run.Command(500, wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
         },
         Why::kNotStarted, "had ended it"},
        {"StartFailed",
         [](WrittenRun& run) {
             run.Online();
             run.Call(30, Operation::kStartRecognition, -22);
         },
         Why::kNotStarted, "failed with -22"},
        {"DspLostTheStart",
         [](WrittenRun& run) {
             run.Start();
             run.Command(600, wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
         },
         Why::kEngineNotDetecting, "engine was loaded"},
        {"DspForgotTheModel",
         [](WrittenRun& run) {
             run.Start();
             run.Journal(600, PowerChanged{.is_up = false});
             run.Journal(700, PowerChanged{.is_up = true});
             run.Command(710, wire::CMD_AUDIO_INPUT_HOTWORD_START);
         },
         Why::kEngineNotDetecting, "engine was armed"},
        {"DspDown",
         [](WrittenRun& run) {
             run.Start();
             run.Journal(900, PowerChanged{.is_up = false});
         },
         Why::kDspDown, "was down"},
        {"HalToldOffline",
         [](WrittenRun& run) {
             run.Start();
             run.Log(900, "OnSoundCardStateChanged: false");
         },
         Why::kReportedOffline, "told that the DSP is offline"},
        {"NeverToldOnline", [](WrittenRun&) {}, Why::kNeverReportedOnline, "not been told yet"},
        {"ModelForAnotherEngine",
         [](WrittenRun& run) {
             run.Online();
             run.facts.models[0].handle = 0;
             run.LoadIntoOtherEngine(10, "another", /*made_for=*/3);
             run.LoadIntoOtherEngine(19, "hey", /*made_for=*/2);
         },
         Why::kLoadedIntoOtherEngine, "made for engine 2"},
        {"OnlyAnotherEngineStartedInHal",
         [](WrittenRun& run) {
             run.Start();
             run.Call(400, Operation::kStopRecognition);
             run.AddStarted(Engine::kAmbientMusic);
             run.DetectAndRead();
         },
         Why::kOnlyOtherEnginesStarted, "other engines"},
        {"AnotherModelOfThisEngineStartedInHal",
         [](WrittenRun& run) {
             run.Start();
             run.Call(400, Operation::kStopRecognition);
             run.AddStarted(Engine::kHotword);
             run.DetectAndRead();
         },
         Why::kNotStarted, "had ended it"},
        {"RefusedTransition",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
             run.Log(2014, "ControlThreadLoop: received Hotword recognition");
             run.Log(2014,
                     "ControlThreadLoop: requested CallbackProcessing failure from Buffering");
         },
         Why::kTransitionRefused, "from Buffering"},
        {"InternalRecognition",
         [](WrittenRun& run) {
             run.Start();
             run.Log(700,
                     "ChangeStateTo: client 1 transits from ModelLoaded to InternalForceDetected");
         },
         Why::kInternalRecognition, "internal recognition"},
        {"RecordReadDuringInternalStream",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
             run.facts.streams.push_back({.is_internal = true, .opened_ns = 800 * kMs});
         },
         Why::kInternalRecognition, "internal recognition"},
        {"BelowThreshold", [](WrittenRun& run) { run.Start(); }, Why::kBelowThreshold,
         "correlation 0.65, threshold 0.7", 0.65},
        {"NotStartedAgain",
         [](WrittenRun& run) {
             run.Start();
             run.Detect(600, 9000);
         },
         Why::kDetectedAlready, "once after each start"},
        {"StartedInTheMiddle", [](WrittenRun& run) { run.Start(1500); }, Why::kStartedTooLate,
         "in the middle"},
        {"RecordDropped",
         [](WrittenRun& run) {
             run.Start();
             run.Detect();
             run.Journal(2011, RecordDropped{.cause = VoidedBy::kStop});
         },
         Why::kRecordDropped, "dropped by stop"},
        {"ReadFailed",
         [](WrittenRun& run) {
             run.Start();
             run.Detect();
             run.Log(2020, "ControlThreadLoop: read trigger event failure: -5");
         },
         Why::kReadFailed, "failure: -5"},
        {"NeverRead",
         [](WrittenRun& run) {
             run.Start();
             run.Detect();
         },
         Why::kNeverRead, "never read"},
        {"NobodysRecord",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
         },
         Why::kNoClient, "no client of it"},
        {"StoppedMeanwhile",
         [](WrittenRun& run) {
             run.Start();
             run.DetectAndRead();
             run.Log(2014, "ControlThreadLoop: received Hotword recognition");
         },
         Why::kTakenNotDelivered, "stopped or unloaded"},
        {"ListenedInVain", [](WrittenRun& run) { run.Start(); }, Why::kNotDetected,
         "was listening"},
};

INSTANTIATE_TEST_SUITE_P(Reasons, MissedHotwordTest, ::testing::ValuesIn(kCases),
                         [](const auto& one) { return one.param.name; });

// The hotword's model was unloaded, and its handle went to another model, which is started.
TEST(MissedHotword, ModelThatHasTheHandleNowDoesNotCount) {
    WrittenRun run;
    run.Start();
    run.Call(400, Operation::kUnloadSoundModel);
    run.facts.models.push_back({.ns = 410 * kMs,
                                .handle = 1,
                                .name = "other",
                                .threshold = 0.7,
                                .pattern = std::vector<int16_t>(16000, 2)});
    run.Call(420, Operation::kStartRecognition);

    const auto missed = run.Missed();

    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_EQ(Why::kNotStarted, missed[0].reason.kind);
}

// One second that resembles nothing else.
audio::Sound MakeSpeech() {
    audio::Sound speech;
    std::minstd_rand random(1);
    for (int i = 0; i < audio::kSampleRateHz; ++i) {
        speech.samples.push_back(static_cast<int16_t>(static_cast<int>(random() % 20001) - 10000));
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
    run.facts.recordings[0].recording = std::make_shared<audio::Sound>(recording);
    run.facts.models[0].pattern = speech.samples;
    auto shorter = run.facts.models[0];
    shorter.handle = 2;
    shorter.pattern.resize(12000);
    run.facts.models.push_back(shorter);
    run.Online();
    run.Call(30, Operation::kStartRecognition, 0, /*handle=*/2);

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
    run.facts.recordings[0].said = std::make_shared<audio::Sound>(said);
    run.facts.recordings[0].said_at = 16000;

    const auto missed = RunFindings(run.facts).missed;

    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_EQ(Why::kBelowThreshold, missed[0].reason.kind);
    EXPECT_EQ(2000 * kMs, missed[0].heard_ns);
}

TEST(MissedHotword, DeliveredOrUnheardOnesAreNotMissed) {
    WrittenRun delivered;
    delivered.Start();
    delivered.Deliver();
    WrittenRun broken_off;
    broken_off.facts.recordings[0].heard = {};
    broken_off.facts.recordings[0].heard.Add(24000, 1500 * kMs);

    EXPECT_THAT(delivered.Missed(), IsEmpty());
    EXPECT_THAT(broken_off.Missed(), IsEmpty()) << "nobody heard its end";
}

}  // namespace
}  // namespace sthal
