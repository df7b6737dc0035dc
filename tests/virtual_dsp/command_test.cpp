#include <gmock/gmock.h>

#include "tests/virtual_dsp/dsp_test.h"

namespace virtual_dsp {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class CommandTest : public DspTest {
  protected:
    CommandAnswered LastAnswer() { return EntriesOf<CommandAnswered>().back(); }
};

TEST_F(CommandTest, MalformedCommandsAreRefusedWithoutAReplyAndJournalled) {
    struct Case {
        std::vector<uint8_t> bytes;
        std::optional<uint32_t> id;
        AnswerCause cause;
        int64_t value = 0;
        int64_t other = 0;
    };
    const Case cases[] = {
            {{}, {}, AnswerCause::kNoCommand, 0},
            {{0, 0, 7, 0, 227, 0, 0}, {}, AnswerCause::kNoCommand, 7},
            {{0, 0, 8, 0, 226, 0, 0, 0}, 226, AnswerCause::kUnknownId},
            {{0, 0, 9, 0, 228, 0, 0, 0}, 228, AnswerCause::kSizeOfHeader, 8, 9},
            {{0, 0, 12, 0, 228, 0, 0, 0, 0, 0, 0, 0}, 228, AnswerCause::kSize, 12, 8},
            {{0, 0, 8, 0, 4, 1, 0, 0}, 260, AnswerCause::kSize, 8, 12},
            {{1, 0, 8, 0, 228, 0, 0, 0}, 228, AnswerCause::kReservedBytes},
            {{0, 0, 8, 0, 228, 0, 0, 9}, 228, AnswerCause::kReservedBytes},
            {{0, 0, 12, 0, 69, 1, 0, 0, 1, 0, 0, 0}, 325, AnswerCause::kNoReferenceSource, 1},
            {{0, 0, 10, 0, 83, 1, 0, 0, 2, 0}, 339, AnswerCause::kNeitherOnNorOff},
    };
    for (const Case& refused : cases) {
        SCOPED_TRACE(::testing::PrintToString(refused.bytes));
        EXPECT_EQ(-EINVAL, dsp_.Execute(refused.bytes, &reply_));
        EXPECT_TRUE(reply_.empty());
        const CommandAnswered answer = LastAnswer();
        EXPECT_EQ(refused.bytes, answer.bytes);
        EXPECT_EQ(refused.id, answer.id);
        EXPECT_EQ(-EINVAL, answer.status);
        EXPECT_EQ(refused.cause, answer.cause);
        EXPECT_EQ(refused.value, answer.value);
        EXPECT_EQ(refused.other, answer.other);
    }
}

TEST_F(CommandTest, AnIdleEngineAcceptsStopAndUnloadButNoStart) {
    for (const Engine engine : {Engine::kAmbientMusic, Engine::kAmbientMusicBreak}) {
        EXPECT_EQ(0, Send(CommandsOf(engine).stop));
        EXPECT_EQ(0, Send(CommandsOf(engine).unload));
        EXPECT_EQ(-EINVAL, Send(CommandsOf(engine).start));
        EXPECT_EQ(-EINVAL, Send(CommandsOf(engine).load));
    }
}

TEST_F(CommandTest, SettingsAreKeptAndEchoedInTheReply) {
    for (const uint16_t id : {206, 342, 350}) EXPECT_EQ(0, Send(id));
    EXPECT_EQ(0, SendValue(325, 2));
    EXPECT_EQ(0, Send(339, {1, 0}));
    EXPECT_EQ(0, SendValue(347, 5));
    EXPECT_EQ(0, SendValue(275, static_cast<uint32_t>(-10)));
    EXPECT_THAT(reply_, ElementsAre(0, 0, 12, 0, 0x13, 1, 0, 0, 0xF6, 0xFF, 0xFF, 0xFF));

    Dsp::Settings now = dsp_.settings();
    EXPECT_TRUE(now.eraser && now.mic_swap && now.neural_aec && now.ap_process_with_dock);
    EXPECT_EQ(2U, now.reference_source);
    EXPECT_THAT(now.tuning, ElementsAre(Pair(275, -10), Pair(347, 5)));

    for (const uint16_t id : {207, 343, 351}) EXPECT_EQ(0, Send(id));
    now = dsp_.settings();
    EXPECT_FALSE(now.eraser || now.mic_swap || now.neural_aec);
}

TEST_F(CommandTest, LibraryArchitectureFillsTheReplyUpToItsLastByte) {
    DspOptions options;
    options.library_version = 0x01020304;
    options.architecture = std::string(70, 'x');
    Dsp dsp(options);
    std::vector<uint8_t> query(76);
    query[2] = 76, query[4] = 0x1A, query[5] = 1;

    ASSERT_EQ(0, dsp.Execute(query, &reply_));

    ASSERT_EQ(76U, reply_.size());
    EXPECT_EQ(4, reply_[8]);
    EXPECT_EQ(std::vector<uint8_t>(64, 'x'),
              std::vector<uint8_t>(reply_.begin() + 12, reply_.end()));
}

TEST_F(CommandTest, ALargeModelIsHeldByteForByte) {
    const SoundModel model{Engine::kAmbientMusic, 0.5F, PatternChannel(0, 1'600, 0)};
    const std::vector<uint8_t> bytes = BuildSoundModel(model, 16 * 1024 * 1024);

    ASSERT_EQ(0, Download(Engine::kAmbientMusic, bytes));

    EXPECT_EQ(bytes, dsp_.model_bytes(Engine::kAmbientMusic));
    EXPECT_EQ(Crc32(bytes), dsp_.engine(Engine::kAmbientMusic).model_crc32);
    EXPECT_EQ(0, Send(265));
    EXPECT_EQ(0U, dsp_.engine(Engine::kAmbientMusic).model_bytes);
}

TEST_F(CommandTest, ChunksMustBeThereAndFollowEachOther) {
    const std::vector<uint8_t> chunk(100, 1);
    EXPECT_EQ(-EINVAL, SendValue(260, 0)) << "no chunk";
    EXPECT_EQ(kModelChunkBytes, dsp_.WriteModelChunk(std::vector<uint8_t>(20'000)));
    EXPECT_EQ(0, SendValue(260, 0));
    EXPECT_EQ(-EINVAL, SendValue(260, kModelChunkBytes)) << "the chunk has been used";

    dsp_.WriteModelChunk(chunk);
    EXPECT_EQ(-EINVAL, SendValue(260, kModelChunkBytes + 100)) << "a gap";
    dsp_.WriteModelChunk(chunk);
    EXPECT_EQ(-EINVAL, SendValue(260, 100)) << "written twice";
    dsp_.WriteModelChunk(chunk);
    EXPECT_EQ(0, SendValue(260, 0)) << "offset 0 begins anew";
    EXPECT_EQ(chunk, dsp_.model_bytes(Engine::kHotword));
    EXPECT_EQ(0, Send(262));
    EXPECT_EQ(0U, dsp_.engine(Engine::kHotword).model_bytes) << "unload drops what is staged";
}

TEST_F(CommandTest, OnlyACompleteSoundModelOfTheRightEngineIsLoaded) {
    const std::vector<uint8_t> good = Model(Engine::kHotword, 0);
    // A damage at `at`, with a checksum that is right again unless the damage is what counts.
    const auto altered = [&](size_t at, uint8_t value, bool mend = true) {
        std::vector<uint8_t> bytes = good;
        bytes[at] = value;
        const uint32_t crc = Crc32(std::span(bytes).subspan(24), Crc32(std::span(bytes).first(20)));
        if (mend) std::memcpy(&bytes[20], &crc, sizeof(crc));
        return bytes;
    };
    struct Case {
        std::vector<uint8_t> bytes;
        ModelFault fault;
        int64_t value = 0;
        int64_t other = 0;
    };
    const SoundModel silent{Engine::kHotword, 0.5F, std::vector<int16_t>(2'000, 7)};
    const Case cases[] = {
            {altered(5'000, static_cast<uint8_t>(good[5'000] ^ 1), false), ModelFault::kChecksum},
            {altered(0, 'X'), ModelFault::kMagic},
            {altered(4, 9), ModelFault::kVersion, 9},
            {altered(6, 4), ModelFault::kEngine, 4},
            {altered(11, 0xFF), ModelFault::kThreshold},
            {altered(13, 0), ModelFault::kTemplateLength, 160},
            {altered(14, 1), ModelFault::kTemplateLength, 69'536},
            {altered(13, 0x10), ModelFault::kTemplatePastEnd},
            {BuildSoundModel(silent), ModelFault::kSilentTemplate},
            {{good.begin(), good.end() - 1}, ModelFault::kTotalBytes, 8'023, 8'024},
            {{good.begin(), good.begin() + 23}, ModelFault::kTooShort, 23},
    };
    for (const Case& bad : cases) {
        EXPECT_EQ(-EINVAL, Download(Engine::kHotword, bad.bytes));
        const CommandAnswered answer = LastAnswer();
        EXPECT_EQ(AnswerCause::kBadModel, answer.cause) << ToText({0, answer});
        EXPECT_EQ(bad.fault, answer.model_fault) << ToText({0, answer});
        EXPECT_EQ(bad.value, answer.value) << ToText({0, answer});
        EXPECT_EQ(bad.other, answer.other) << ToText({0, answer});
        EXPECT_FALSE(dsp_.engine(Engine::kHotword).model_loaded) << ToText({0, answer});
    }
    EXPECT_EQ(-EINVAL, Download(Engine::kHotword, Model(Engine::kAmbientMusic, 0)));
    EXPECT_EQ(AnswerCause::kModelOfOtherEngine, LastAnswer().cause);
    EXPECT_EQ(2, LastAnswer().value);
    EXPECT_EQ(0, Download(Engine::kHotword, good)) << ToText({0, LastAnswer()});
}

TEST_F(CommandTest, ACrashWakesEverybodyAndForgetsEverythingAndABootBeginsEmpty) {
    std::vector<Readiness> woken;
    dsp_.SetReadinessListener([&](Readiness readiness) { woken.push_back(readiness); });
    Arm(Engine::kHotword, 1'000);
    Send(206);
    SendValue(275, 1);
    dsp_.WriteModelChunk(Model(Engine::kHotword, 0));
    HearUntil(10'000);
    ASSERT_TRUE(dsp_.HasNotification());
    woken.clear();

    dsp_.Crash();
    EXPECT_THAT(woken, UnorderedElementsAre(Readiness::kNotification, Readiness::kHotwordPcm,
                                            Readiness::kAmbientPcm));
    EXPECT_EQ(-ENODEV, Send(228));
    EXPECT_EQ(-ENODEV, dsp_.WriteModelChunk(reply_));
    std::vector<uint8_t> out(4);
    EXPECT_EQ(-ENODEV, dsp_.ReadPcm(PcmPort::kHotword, out));
    EXPECT_FALSE(dsp_.HasNotification());
    EXPECT_EQ("", dsp_.ReadClock());
    HearUntil(20'000);

    dsp_.Boot();
    EXPECT_TRUE(dsp_.settings().tuning.empty());
    EXPECT_FALSE(dsp_.settings().eraser);
    EXPECT_FALSE(dsp_.engine(Engine::kHotword).model_loaded);
    EXPECT_EQ(-EINVAL, Send(354, std::vector<uint8_t>(8))) << "no hotword in this life";
    EXPECT_EQ(-EINVAL, SendValue(260, 0)) << "the chunk is lost";
    EXPECT_EQ(0U, dsp_.PcmBytesReady(PcmPort::kHotword));
    Arm(Engine::kHotword, 21'000);
    HearUntil(26'000);
    EXPECT_THAT(TakeRecords(), ElementsAre("241 score=1.00 frame=24999"));
    EXPECT_EQ(6'000U * 4, ReadAll(PcmPort::kHotword).size()) << "nothing from before the boot";
    EXPECT_EQ(20'000U, EntriesOf<CaptureReadBegun>().back().frame);
    EXPECT_TRUE(EntriesOf<CaptureOverrun>().empty());
}

}  // namespace
}  // namespace virtual_dsp
