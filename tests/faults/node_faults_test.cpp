// The other nodes go wrong in every way there is, and calls that a driver never returns from.
#include <algorithm>
#include <future>

#include "tests/faults/board_bench.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kBuffering[] = "load, start, detect, buffer";
constexpr char kMusicBuffering[] = "load music, start music, detect music, buffer music";

struct NodeRow {
    const char* rules;  // A path instead: that node is gone.
    const char* setup;
    const char* request;
    const char* result;
    const char* state;
    const char* retry = "";  // Separated by ", " where it takes more than one request.
    const char* retry_state = "";
};

constexpr NodeRow kNodeRows[] = {
        // The model's way down. A model with a hole or a wrong byte is the DSP's to refuse.
        {zyl::kModelDataDevice, "", "load", "-22", "none", "load", "1 ModelLoaded"},
        {"on model_data open errno=EIO", "", "load", "-22", "none", "load", "1 ModelLoaded"},
        {"on model_data open times=5 errno=ENOENT", "", "load", "0", "1 ModelLoaded", "start",
         "1 StartDetecting started"},
        {"on model_data write errno=EIO", "", "load", "-22", "none", "load", "1 ModelLoaded"},
        {"on model_data write after=1 errno=ENODEV", "", "load", "-22", "none", "load",
         "1 ModelLoaded"},
        {"on model_data write after=2 short=-1", "", "load", "-22", "none", "load",
         "1 ModelLoaded"},
        {"on model_data write after=1 times=1 torn=1", "", "load", "-22", "none", "load",
         "1 ModelLoaded"},
        {"on model_data open delay=100", "", "load music", "0", "1 ModelLoaded", "start music",
         "1 StartDetecting started"},
        {"on model_data write short=0", "", "load music", "-22", "none", "load music",
         "1 ModelLoaded"},
        {"on model_data write delay=100", "", "load", "0", "1 ModelLoaded", "start",
         "1 StartDetecting started"},
        {"on model_data write errno=EIO", "offline, load, start", "online", "done",
         "1 ModelUnloaded started", "online", "1 StartDetecting started"},
        {"on command reply id=260 times=1 errno=EIO", "", "load", "-22", "none", "load",
         "1 ModelLoaded"},
        {"on command reply id=260 times=1 hang", "", "load", "0", "1 ModelLoaded", "start",
         "1 StartDetecting started"},
        {"on command write id=260 after=2 errno=EIO", "", "load", "-22", "none", "load",
         "1 ModelLoaded"},

        // Captured audio: a failed read is silence, and the next one goes on.
        {zyl::kHotwordPcmDevice, kBuffering, "read", "silence", "1 Buffering started", "read",
         "1 Buffering started"},
        {"on hotword_pcm open errno=EIO", kBuffering, "read", "silence", "1 Buffering started",
         "read", "1 Buffering started"},
        {"on hotword_pcm open delay=50", kBuffering, "read", "audio", "1 Buffering started", "read",
         "1 Buffering started"},
        {"on hotword_pcm poll errno=EIO", kBuffering, "read", "audio", "1 Buffering started",
         "read", "1 Buffering started"},
        {"on hotword_pcm poll times=1 delay=20", kBuffering, "read", "audio", "1 Buffering started",
         "read", "1 Buffering started"},
        {"on hotword_pcm poll times=1 delay=5000", kBuffering, "read", "silence",
         "1 Buffering started", "read", "1 Buffering started"},
        {"on hotword_pcm poll hang", kBuffering, "read", "silence", "1 Buffering started", "read",
         "1 Buffering started"},
        {"on hotword_pcm poll ready", kBuffering, "read", "audio", "1 Buffering started", "read",
         "1 Buffering started"},
        {"on hotword_pcm read errno=EIO", kBuffering, "read mono", "silence", "1 Buffering started",
         "read mono", "1 Buffering started"},
        {"on hotword_pcm read errno=ENODEV", kBuffering, "read", "silence", "1 Buffering started",
         "read", "1 Buffering started"},
        {"on hotword_pcm read errno=EINTR", kBuffering, "read", "silence", "1 Buffering started",
         "read", "1 Buffering started"},
        {"on hotword_pcm read times=1 short=100", kBuffering, "read", "audio",
         "1 Buffering started", "read", "1 Buffering started"},
        // Inside a frame: what is left to read then is less than the device ever delivers.
        {"on hotword_pcm read times=1 short=102", kBuffering, "read", "silence",
         "1 Buffering started", "read", "1 Buffering started"},
        {"on hotword_pcm read short=0", kBuffering, "read", "silence", "1 Buffering started",
         "read", "1 Buffering started"},
        {"on hotword_pcm read torn=64", kBuffering, "read", "audio", "1 Buffering started", "read",
         "1 Buffering started"},
        {"on hotword_pcm read delay=50", kBuffering, "read", "audio", "1 Buffering started", "read",
         "1 Buffering started"},
        {zyl::kAmbientPcmDevice, kMusicBuffering, "read music", "silence", "1 Buffering started",
         "read music", "1 Buffering started"},
        {"on ambient_pcm open errno=EIO", kMusicBuffering, "read music", "silence",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm open delay=50", kMusicBuffering, "read music", "audio",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm poll errno=EIO", kMusicBuffering, "read music", "audio",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm poll times=1 delay=20", kMusicBuffering, "read music", "audio",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm poll ready", kMusicBuffering, "read music", "audio", "1 Buffering started",
         "read music", "1 Buffering started"},
        {"on ambient_pcm poll hang", kMusicBuffering, "read music", "silence",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm read errno=EIO", kMusicBuffering, "read music", "silence",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm read short=0", kMusicBuffering, "read music", "silence",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm read torn=64", kMusicBuffering, "read music", "audio",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm read delay=50", kMusicBuffering, "read music", "audio",
         "1 Buffering started", "read music", "1 Buffering started"},
        {"on ambient_pcm read times=1 short=100", kMusicBuffering, "read music", "audio",
         "1 Buffering started", "read music", "1 Buffering started"},

        // The hotword's timestamp: the audio comes all the same, the timestamp with the next
        // detection.
        {zyl::kClockNode, kBuffering, "timestamp", "audio, no timestamp", "1 Buffering started",
         "stop, start, detect, buffer, timestamp", "1 Buffering started"},
        {"on clock open errno=EIO", kBuffering, "timestamp", "audio, no timestamp",
         "1 Buffering started", "stop, start, detect, buffer, timestamp", "1 Buffering started"},
        {"on clock read errno=EIO", kBuffering, "timestamp", "audio, no timestamp",
         "1 Buffering started", "stop, start, detect, buffer, timestamp", "1 Buffering started"},
        {"on clock read short=0", kBuffering, "timestamp", "audio, no timestamp",
         "1 Buffering started", "stop, start, detect, buffer, timestamp", "1 Buffering started"},
        {"on clock read short=3", kBuffering, "timestamp", "audio, no timestamp",
         "1 Buffering started", "stop, start, detect, buffer, timestamp", "1 Buffering started"},
        {"on clock read torn=4 at=0", kBuffering, "timestamp", "audio, no timestamp",
         "1 Buffering started", "stop, start, detect, buffer, timestamp", "1 Buffering started"},
        {"on clock open delay=50", kBuffering, "timestamp", "audio, timestamp",
         "1 Buffering started", "read", "1 Buffering started"},
        {"on clock read delay=50", kBuffering, "timestamp", "audio, timestamp",
         "1 Buffering started", "read", "1 Buffering started"},

        // Detections. A device that cannot be opened is tried again when the DSP is back.
        {zyl::kNotificationDevice, "load", "start", "0", "1 StartDetecting started",
         "offline, online", "1 StartDetecting started"},
        {"on notification open errno=EIO", "load", "start", "0", "1 StartDetecting started",
         "offline, online", "1 StartDetecting started"},
        {"on notification open times=3 errno=ENOENT", "load", "start", "0",
         "1 StartDetecting started", "start", "1 StartDetecting started"},
        {"on notification open delay=100", "load", "start", "0", "1 StartDetecting started",
         "start", "1 StartDetecting started"},
        {"on notification read times=3 errno=EIO", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification read times=1 errno=ENODEV", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification read times=1 errno=EAGAIN", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification poll times=3 ready", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification poll times=3 errno=EIO", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification poll times=3 delay=100", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification read times=1 errno=EINTR", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {"on notification read times=1 delay=100", "load, start", "detect", "0",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},

        // Power and tuning: never the request's failure.
        {"/sys/power/wake_lock", "", "dock", "done", "none", "undock, dock", "none"},
        {"/sys/power/wake_unlock", "dock", "undock", "done", "none", "dock, undock", "none"},
        {"on wake_lock write short=3", "", "dock", "done", "none", "undock, dock", "none"},
        {"on wake_lock write delay=100", "", "dock", "done", "none", "undock, dock", "none"},
        {"on wake_unlock open errno=EIO", "dock", "undock", "done", "none", "dock, undock", "none"},
        {"on wake_lock write errno=EACCES", "", "dock", "done", "none", "undock, dock", "none"},
        {"on wake_lock open errno=EACCES", "", "dock", "done", "none", "undock, dock", "none"},
        {"on wake_unlock write errno=EIO", "dock", "undock", "done", "none", "dock, undock",
         "none"},
        {zyl::kTuningFile, "built", "initialize", "0", "none", "online", "none"},
        {"on tuning open errno=EIO", "built", "initialize", "0", "none", "online", "none"},
        {"on tuning read errno=EIO", "built", "initialize", "0", "none", "online", "none"},
        {"on tuning read short=20", "built", "initialize", "0", "none", "online", "none"},
        {"on tuning read delay=100", "built", "initialize", "0", "none", "online", "none"},
        {"on tuning read torn=1", "built", "initialize", "0", "none", "online", "none"},
};

class NodeFaultsTest : public BoardBenchTest, public ::testing::WithParamInterface<size_t> {
  protected:
    static void SetUpTestSuite() {
        Report::Get().Begin("Another node that fails",
                            {"Fault", "From", "Request", "Result", "Clients afterwards", "Took",
                             "Retry", "Clients then"});
    }

    void SetUp() override { tuning_ = TuningOf({275}); }
};

TEST_P(NodeFaultsTest, RequestEndsAsTheTableSaysAndTheRetryWorks) {
    const NodeRow& row = kNodeRows[GetParam()];
    SCOPED_TRACE(std::string(row.rules) + " under \"" + row.request + "\"");
    NewBench();
    ASSERT_NO_FATAL_FAILURE(bench_->Reach(row.setup));
    std::optional<MissingNode> missing;
    if (*row.rules == '/') {
        missing.emplace(row.rules);
    } else {
        ASSERT_NO_FATAL_FAILURE(AddFaults(row.rules));
    }
    if (std::string(row.setup) == "built") BuildHal();  // Which is when the tuning file is read.

    const Outcome outcome = bench_->CarryOut(row.request);

    EXPECT_EQ(row.result, outcome.result);
    EXPECT_EQ(row.state, bench_->State());
    EXPECT_LT(outcome.took, milliseconds(1000));
    missing.reset();
    board_->faults().Clear();
    bench_->CarryOutAll(row.retry);
    EXPECT_EQ(row.retry_state, bench_->State());
    bench_->ExpectDetection();
    Report::Get().Add({*row.rules == '/' ? std::string(row.rules) + " gone" : row.rules,
                       *row.setup == '\0' ? "idle" : row.setup, row.request, row.result, row.state,
                       Milliseconds(outcome.took), row.retry, row.retry_state});
}

INSTANTIATE_TEST_SUITE_P(, NodeFaultsTest, ::testing::Range<size_t>(0, std::size(kNodeRows)));

// --- what no status tells of ---

class LostDetectionTest : public BoardBenchTest,
                          public ::testing::WithParamInterface<const char*> {};

TEST_P(LostDetectionTest, RecordThatCannotBeReadIsLostAndTheNextStartHearsAgain) {
    NewBench();
    ASSERT_NO_FATAL_FAILURE(bench_->Reach("load, start"));
    const size_t lost = AddFault(GetParam());

    PlayHotword();

    ASSERT_TRUE(board_->faults().WaitUntilFired(lost, 1, ::virtual_dsp::kDeadline));
    EXPECT_EQ("1 StartDetecting started", bench_->State());
    // What comes after the lost one is the first that the framework hears of.
    bench_->ExpectDetection(/*restart=*/true);
    EXPECT_EQ(1U, bench_->framework().events().size());
}

INSTANTIATE_TEST_SUITE_P(, LostDetectionTest,
                         ::testing::Values("on notification read times=1 short=39",
                                           "on notification read times=1 torn=1 at=4"));

// A call that the driver does not return from holds whoever made it, until the DSP is found to be
// down, which ends every call on its nodes.
class DriverHangTest : public BoardBenchTest, public ::testing::WithParamInterface<NodeRow> {
  protected:
    static void SetUpTestSuite() {
        Report::Get().Begin("A call that the driver does not return from, until the DSP goes down",
                            {"Fault", "From", "Request", "Result", "Clients afterwards",
                             "Ended after the DSP's end"});
    }
};

TEST_P(DriverHangTest, EndsWithTheDspAndTheReportsDoTheRest) {
    const NodeRow& row = GetParam();
    SCOPED_TRACE(std::string(row.rules) + " under \"" + row.request + "\"");
    NewBench();
    ASSERT_NO_FATAL_FAILURE(bench_->Reach(row.setup));
    const size_t hang = AddFault(row.rules);
    auto request = std::async(std::launch::async, [&] { return bench_->CarryOut(row.request); });
    ASSERT_TRUE(board_->faults().WaitUntilFired(hang, 1, ::virtual_dsp::kDeadline));

    const auto down = steady_clock::now();
    board_->dsp().Crash();
    const Outcome outcome = request.get();
    EXPECT_EQ(row.result, outcome.result);
    EXPECT_EQ(row.state, bench_->State());  // For which nobody may hold the lock any more.
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - down);
    EXPECT_LT(took, milliseconds(1000));
    board_->faults().Clear();
    board_->dsp().Boot();
    bench_->CarryOutAll("offline, online");
    bench_->ExpectDetection();
    Report::Get().Add(
            {row.rules, row.setup, row.request, row.result, row.state, Milliseconds(took)});
}

INSTANTIATE_TEST_SUITE_P(
        , DriverHangTest,
        ::testing::Values(
                NodeRow{"on command open times=1 hang", "load", "start", "-22", "1 ModelLoaded"},
                NodeRow{"on command write times=1 hang", "load", "start", "-22", "1 ModelLoaded"},
                NodeRow{"on command read times=1 hang", "load", "start", "-22", "1 ModelLoaded"},
                NodeRow{"on model_data open times=1 hang", "load", "load music", "-22",
                        "1 ModelLoaded"},
                NodeRow{"on model_data write after=1 times=1 hang", "load", "load music", "-22",
                        "1 ModelLoaded"},
                NodeRow{"on hotword_pcm open times=1 hang", kBuffering, "read", "silence",
                        "1 Buffering started"},
                NodeRow{"on hotword_pcm read times=1 hang", kBuffering, "read", "silence",
                        "1 Buffering started"},
                NodeRow{"on clock read times=1 hang", kBuffering, "timestamp", "audio, timestamp",
                        "1 Buffering started"},
                NodeRow{"on clock open times=1 hang", kBuffering, "timestamp",
                        "audio, no timestamp", "1 Buffering started"},
                NodeRow{"on ambient_pcm open times=1 hang", kMusicBuffering, "read music",
                        "silence", "1 Buffering started"},
                NodeRow{"on ambient_pcm read times=1 hang", kMusicBuffering, "read music",
                        "silence", "1 Buffering started"},
                // These hold the control thread, and with it the lock: the request has returned by
                // then.
                NodeRow{"on notification open times=1 hang", "load", "start", "0",
                        "1 StartDetecting started"},
                NodeRow{"on notification read times=1 hang", "load, start", "force", "0",
                        "1 StartDetecting started"}));

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
