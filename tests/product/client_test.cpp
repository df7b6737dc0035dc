// A client by itself: every request in every state, its events, its reads and its engine.
#include <array>
#include <chrono>

#include "tests/product/hal_test.h"
#include "tests/support/client_table.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using ::aidl::android::media::audio::common::AudioChannelLayout;
using ::aidl::android::media::audio::common::AudioFormatType;
using ::aidl::android::media::audio::common::PcmType;
using ::aidl::android::media::soundtrigger::RecognitionStatus;
using Client = SoundTriggerHalClient;
using enum RuntimeState;

struct Operation {
    const char* name;
    int (Client::*request)();
};
// In the order of Request.
constexpr Operation kOperations[] = {
        {"ToUnloadState", &Client::RequestUnloadModel},
        {"ToLoadState", &Client::RequestLoadModel},
        {"ToDetecting", &Client::RequestStartDetecting},
        {"ToCallbackProcessing", &Client::RequestCallbackProcessing},
        {"ToBuffering", &Client::RequestStartBuffering},
        {"ToInternalForceRecognition", &Client::RequestInternalForceRecognition},
};

// How the journal shows a call to an engine.
std::string CallOf(DspOp op, int engine) {
    if (op == DspOp::kInternal) return "Internal(0)";
    constexpr const char* kNames[] = {"Load", "Unload", "Start", "Stop"};
    return kNames[static_cast<int>(op)] + ("(" + std::to_string(engine)) +
           (op == DspOp::kLoad ? ",5,model)" : ")");
}

class ClientTest : public ::testing::TestWithParam<EngineType> {
  protected:
    void Initialize(Client::SoundModelType type) {
        ASSERT_EQ(0, client_->Initialize(ModelOf(type, "v"), callback_));
    }

    // A new client of the tested engine in `state`.
    void Enter(RuntimeState state) {
        client_ = Client::Create(1, &dsp_);
        Initialize(GetParam() == EngineType::Hotword ? KEYPHRASE : GENERIC);
        if (state == InternalForceDetected) {
            client_->engine_type_ = EngineType::Hotword;
            EXPECT_EQ(0, client_->RequestInternalForceRecognition());
            client_->engine_type_ = GetParam();
        }
        for (int step = 1; client_->state() != state; ++step) {
            EXPECT_EQ(0, (client_.get()->*kOperations[step].request)());
        }
        (void)dsp_.Take();
        (void)log_.Take();
    }

    // Makes a request of it, where the DSP fails at its call number `failing`.
    void Walk(RuntimeState state, Request request, size_t failing) {
        const Operation& operation = kOperations[static_cast<int>(request)];
        SCOPED_TRACE(operation.name + (" in " + toString(state)) + ": " + std::to_string(failing));
        const Transition& transition = TransitionOf(state, request, GetParam());
        const bool is_allowed = transition.is_allowed();
        std::vector<std::string> calls;
        LogCapture::Lines lines;
        for (const auto& [op, failure] : transition.calls) {
            calls.push_back(CallOf(op, EngineOf(state, GetParam())));
            if (calls.size() <= failing) continue;
            lines = {"E RuntimeState: "s + operation.name + ": " + failure + "failure due to 5"};
            break;
        }
        const bool is_done = is_allowed && lines.empty();
        const auto next = is_done ? static_cast<RuntimeState>(transition.next) : state;
        if (is_done && next != state) {
            lines = {"I Client: ChangeStateTo: client 1 transits from " + toString(state) + " to " +
                     toString(next)};
        } else if (is_done && state != InternalForceDetected) {
            lines = {"I RuntimeState: "s + operation.name +
                     ": client type: " + toString(GetParam())};
        }
        Enter(state);
        if (is_allowed && !is_done) dsp_.Script({.call = calls.back(), .result = 5});

        EXPECT_EQ(is_done ? 0 : -EINVAL, (client_.get()->*operation.request)());

        EXPECT_EQ(next, client_->state());
        EXPECT_EQ(calls, dsp_.Take());
        EXPECT_EQ(lines, log_.Take());
    }

    LogCapture log_;
    ScriptedAdapter dsp_;
    const std::shared_ptr<RecordingCallback> callback_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    std::unique_ptr<Client> client_ = Client::Create(1, &dsp_);
};

TEST_P(ClientTest, EachRequestIsCarriedOutOrRefusedInEachStateAndEndsWhereTheDspFails) {
    for (int walk = 0; walk < 6 * 6 * 3; ++walk) {
        Walk(static_cast<RuntimeState>(walk / 18), static_cast<Request>(walk / 3 % 6),
             static_cast<size_t>(walk % 3));
    }
}

INSTANTIATE_TEST_SUITE_P(Engines, ClientTest,
                         ::testing::Values(EngineType::Hotword, EngineType::AmbientMusic),
                         [](const auto& engine) { return toString(engine.param); });

TEST_F(ClientTest, StatesAskedForNobodyRefuseExceptTheOneThatLooksAtNothing) {
    (void)log_.Take();
    EXPECT_EQ(1, StateModelLoaded(&dsp_).ToUnloadState(nullptr));
    EXPECT_EQ(0, StateInternalForceDetected(&dsp_).ToDetecting(nullptr));
    EXPECT_THAT(log_.Take(), ElementsAre("E RuntimeState: IsInvalidClient: Client is NULL."));
}

TEST_F(ClientTest, EventsAreThoseOfTheModelsKind) {
    client_->ExecuteCallback("nobody's");
    EXPECT_EQ(1, log_.Count("W Client: ExecuteCallback: Invalid model information."));

    ::aidl::android::media::soundtrigger::PhraseRecognitionEvent expected;
    expected.common.status = RecognitionStatus::SUCCESS;
    expected.common.type = GENERIC;
    expected.common.captureAvailable = true;  // Whatever was asked for.
    auto& base = expected.common.audioConfig.emplace().base;
    base.sampleRate = 16000;
    base.channelMask.set<AudioChannelLayout::layoutMask>(AudioChannelLayout::LAYOUT_MONO);
    base.format.type = AudioFormatType::PCM;
    base.format.pcm = PcmType::INT_16_BIT;
    expected.common.data = {0x80, 'z'};
    Initialize(GENERIC);
    client_->ExecuteCallback("\x80z");
    EXPECT_FALSE(callback_->events().back().is_phrase);
    EXPECT_EQ(expected, callback_->events().back().event);

    expected.common.type = KEYPHRASE;
    base.channelMask.set<AudioChannelLayout::layoutMask>(AudioChannelLayout::LAYOUT_STEREO);
    expected.phraseExtras = {{.id = 7, .recognitionModes = 1, .confidenceLevel = 90, .levels = {}},
                             {.id = 8, .levels = {{.userId = 1, .levelPercent = 50}}}};
    Initialize(KEYPHRASE);
    client_->recognition_config_.phraseRecognitionExtras = expected.phraseExtras;
    for (const bool capture : {true, false}) {
        client_->recognition_config_.captureRequested = capture;
        expected.common.captureAvailable = capture;
        client_->ExecuteCallback("\x80z");
        EXPECT_TRUE(callback_->events().back().is_phrase);
        EXPECT_EQ(expected, callback_->events().back().event);
    }
}

TEST_F(ClientTest, EngineIsCheckedAtItsUpperEndOnlyAndKnownBeforeTheData) {
    EXPECT_EQ(-EINVAL, client_->Initialize(ModelOf(KEYPHRASE, "v", ""), callback_));
    EXPECT_EQ("Hotword", toString(client_->engine_type_));
    EXPECT_TRUE(client_->set_engine_type(EngineType::AmbientMusicBreak));
    EXPECT_FALSE(client_->set_engine_type(static_cast<EngineType>(4)));
    EXPECT_EQ("AmbientMusicBreak", toString(client_->engine_type_));
    EXPECT_EQ(1, log_.Count("E Client: : Invalid EngineType: 4"));
    EXPECT_TRUE(client_->set_engine_type(static_cast<EngineType>(-1)));
    EXPECT_EQ("-1", toString(client_->engine_type_));
}

TEST_F(ClientTest, ReadsOnlyWhileBufferingAndTurnsFailuresIntoSilence) {
    std::string buffer(2048, 'x');
    Initialize(KEYPHRASE);
    EXPECT_EQ(-EINVAL, client_->ReadClientBuffer(buffer.data(), 2048, 2));
    EXPECT_EQ(1, log_.Count("E Client: ReadClientBuffer: The states is no buffering state!"));
    EXPECT_EQ(0, client_->RequestInternalForceRecognition() + client_->RequestStartBuffering());
    dsp_.Script({.call = "Read(1,2000,2)", .result = -EIO});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(2000, client_->ReadClientBuffer(buffer.data(), 2000, 2));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(64));
    EXPECT_EQ(std::string(2000, '\0') + std::string(48, 'x'), buffer);
    EXPECT_EQ(1024, client_->ReadClientBuffer(buffer.data(), 1024, 2));
    dsp_.timestamp_ns = 99;
    EXPECT_EQ(99, client_->ReadClientTimestamp());
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
