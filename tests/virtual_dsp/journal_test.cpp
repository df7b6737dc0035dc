#include "host/virtual_dsp/dsp/journal.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace virtual_dsp {
namespace {

// The only test of what the journal says in words; every other one looks at the facts.
struct Sentence {
    JournalEntry::What what;
    const char* line;
};

TEST(JournalTextTest, AnAnswerReadsAsItsCommandItsStatusAndItsCause) {
    const Sentence sentences[] = {
            {CommandAnswered{.id = 227}, "command 227 hotword start -> 0"},
            {CommandAnswered{.status = -EINVAL, .cause = AnswerCause::kNoCommand, .value = 7},
             "command without an id -> -22: 7 bytes are no command"},
            {CommandAnswered{.id = 226, .status = -EINVAL, .cause = AnswerCause::kUnknownId},
             "command 226 unknown -> -22: unknown id"},
            {CommandAnswered{.id = 260,
                             .status = -EINVAL,
                             .cause = AnswerCause::kChunkOffset,
                             .value = 9,
                             .other = 5},
             "command 260 hotword write model -> -22: offset 9 does not follow the 5 bytes staged"},
            {CommandAnswered{.id = 261,
                             .status = -EINVAL,
                             .cause = AnswerCause::kBadModel,
                             .value = 30,
                             .other = 40,
                             .model_fault = ModelFault::kTotalBytes},
             "command 261 hotword load model -> -22: bad model: 30 of 40 bytes"},
            {CommandAnswered{.id = 275, .cause = AnswerCause::kValue, .value = -10},
             "command 275 tuning: eraser pre gain -> 0: -10"},
    };
    for (const auto& [what, line] : sentences) EXPECT_EQ(line, ToLine({0, what}));
}

TEST(JournalTextTest, EveryOtherKindReadsAsItsSourceAndItsFacts) {
    using Origin = DetectionRaised::Origin;
    const Sentence sentences[] = {
            {ChunkTaken{.offered = 20'000, .taken = 16'384},
             "model-data: 16384 of 20000 bytes taken"},
            {ChunkTaken{.offered = 5, .taken = 5, .replaces_unplaced = true},
             "model-data: 5 of 5 bytes taken; the chunk before was never placed"},
            {ChunkTaken{.offered = 5, .status = -ENODEV},
             "model-data: a chunk of 5 bytes: the DSP is down"},
            {DetectionRaised{.frame = 67'652, .score = 0.996, .captured_from = 1'234},
             "detector: hotword detected, score=1.00 frame=67652, captured from frame 1234"},
            {DetectionRaised{
                     .engine = Engine::kAmbientMusic, .origin = Origin::kForced, .frame = 7},
             "detector: ambient music detected, forced frame=7, captured from frame 0"},
            {DetectionRaised{.origin = Origin::kInternal, .frame = 7},
             "detector: hotword detected, internal frame=7, captured from frame 0"},
            {RecordTaken{.engine = Engine::kAmbientMusicBreak},
             "notification: ambient music break record taken"},
            {RecordDropped{.cause = VoidedBy::kInternalRecognition},
             "notification: unread hotword record dropped by internal recognition"},
            {CaptureEnded{.cause = VoidedBy::kUnload, .bytes = 123},
             "pcm: hotword capture ended by unload after 123 bytes"},
            {CaptureReplaced{.engine = Engine::kAmbientMusic, .by = Engine::kAmbientMusicBreak},
             "pcm: ambient music capture replaced by one of ambient music break"},
            {CaptureReadBegun{.port = PcmPort::kAmbient, .frame = 9},
             "pcm: ambient read begins with frame 9"},
            {CaptureOverrun{.lost = 500, .frame = 20'500},
             "pcm: hotword overrun: 500 frames lost before frame 20500"},
            {MicrophonePaused{.pause_ns = 30'999'999, .frame = 5},
             "microphone: nothing heard for 30 ms before frame 5 (its source paused, or this "
             "machine "
             "was busy)"},
            {PowerChanged{.is_up = true}, "life: boot"},
            {PowerChanged{}, "life: crash"},
            {FaultHit{.rule = "on clock read errno=EIO", .count = 1},
             "fault: on clock read errno=EIO: hit a call"},
            {FaultHit{.rule = "on clock poll ready", .count = 20, .is_last_reported = true},
             "fault: on clock poll ready: hit a call, 20 times by now; the next ones are not told"},
    };
    for (const auto& [what, line] : sentences) EXPECT_EQ(line, ToLine({0, what}));
}

TEST(JournalTest, TheListenerHearsEveryEntryInOrderAndMayUseTheJournal) {
    constexpr uint64_t kAddedByListener = 1'000;
    Journal journal({}, /*capacity=*/100);
    const auto number = [](const JournalEntry& entry) {
        return entry.As<MicrophonePaused>()->frame;
    };
    std::vector<uint64_t> heard;
    journal.SetListener([&](const JournalEntry& entry) {
        heard.push_back(number(entry));
        if (number(entry) == 1) journal.Add(MicrophonePaused{.frame = kAddedByListener});
        EXPECT_LE(journal.Snapshot().size(), 100U);
    });

    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (uint64_t n = 0; n < 250; ++n) journal.Add(MicrophonePaused{.frame = n});
        });
    }
    for (std::thread& thread : threads) thread.join();

    ASSERT_EQ(4U * 250 + 4, heard.size());
    std::vector<uint64_t> kept;
    for (const JournalEntry& entry : journal.Snapshot()) kept.push_back(number(entry));
    EXPECT_EQ(kept, std::vector<uint64_t>(heard.end() - 100, heard.end()));
    EXPECT_EQ(heard.size() - 100, journal.Forgotten());
}

}  // namespace
}  // namespace virtual_dsp
