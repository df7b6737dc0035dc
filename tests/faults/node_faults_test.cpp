// The other nodes go wrong in every way there is, and calls that a driver never returns from.
#include <algorithm>
#include <future>

#include "tests/faults/board_rig.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kBuffering[] = "load, start, detect, buffer";
constexpr char kMusicBuffering[] = "load music, start music, detect music, buffer music";

constexpr std::optional<DspOp> kNothing;

struct NodeRow {
    const char* rules;             // A path instead: that node is gone.
    std::optional<DspOp> failing;  // The operation that the fault makes fail.
    const char* setup;
    const char* request;
    const char* retry;             // Separated by ", " where it takes more than one request.
    const char* result = nullptr;  // Where the oracle knows none.
};

constexpr NodeRow kNodeRows[] = {
        // The model's way down. A model with a hole or a wrong byte is the DSP's to refuse.
        {zyl::kModelDataDevice, DspOp::kLoad, "", "load", "load"},
        {"on model_data open errno=EIO", DspOp::kLoad, "", "load", "load"},
        {"on model_data open times=5 errno=ENOENT", kNothing, "", "load", "start"},
        {"on model_data write errno=EIO", DspOp::kLoad, "", "load", "load"},
        {"on model_data write after=1 errno=ENODEV", DspOp::kLoad, "", "load", "load"},
        {"on model_data write after=2 short=-1", DspOp::kLoad, "", "load", "load"},
        {"on model_data write after=1 times=1 torn=1", DspOp::kLoad, "", "load", "load"},
        {"on model_data open delay=100", kNothing, "", "load music", "start music"},
        {"on model_data write short=0", DspOp::kLoad, "", "load music", "load music"},
        {"on model_data write delay=100", kNothing, "", "load", "start"},
        {"on model_data write errno=EIO", DspOp::kLoad, "offline, load, start", "online", "online"},
        {"on command reply id=260 times=1 errno=EIO", DspOp::kLoad, "", "load", "load"},
        {"on command reply id=260 times=1 hang", kNothing, "", "load", "start"},
        {"on command write id=260 after=2 errno=EIO", DspOp::kLoad, "", "load", "load"},

        // Captured audio: a failed read is silence, and the next one goes on.
        {zyl::kHotwordPcmDevice, DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm open errno=EIO", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm open delay=50", kNothing, kBuffering, "read", "read"},
        {"on hotword_pcm poll errno=EIO", kNothing, kBuffering, "read", "read"},
        {"on hotword_pcm poll times=1 delay=20", kNothing, kBuffering, "read", "read"},
        {"on hotword_pcm poll times=1 delay=5000", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm poll hang", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm poll ready", kNothing, kBuffering, "read", "read"},
        {"on hotword_pcm read errno=EIO", DspOp::kRead, kBuffering, "read mono", "read mono"},
        {"on hotword_pcm read errno=ENODEV", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm read errno=EINTR", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm read times=1 short=100", kNothing, kBuffering, "read", "read"},
        // Inside a frame: what is left to read then is less than the device ever delivers.
        {"on hotword_pcm read times=1 short=102", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm read short=0", DspOp::kRead, kBuffering, "read", "read"},
        {"on hotword_pcm read torn=64", kNothing, kBuffering, "read", "read"},
        {"on hotword_pcm read delay=50", kNothing, kBuffering, "read", "read"},
        {zyl::kAmbientPcmDevice, DspOp::kRead, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm open errno=EIO", DspOp::kRead, kMusicBuffering, "read music",
         "read music"},
        {"on ambient_pcm open delay=50", kNothing, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm poll errno=EIO", kNothing, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm poll times=1 delay=20", kNothing, kMusicBuffering, "read music",
         "read music"},
        {"on ambient_pcm poll ready", kNothing, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm poll hang", DspOp::kRead, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm read errno=EIO", DspOp::kRead, kMusicBuffering, "read music",
         "read music"},
        {"on ambient_pcm read short=0", DspOp::kRead, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm read torn=64", kNothing, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm read delay=50", kNothing, kMusicBuffering, "read music", "read music"},
        {"on ambient_pcm read times=1 short=100", kNothing, kMusicBuffering, "read music",
         "read music"},

        // The hotword's timestamp: the audio comes all the same, the timestamp with the next
        // detection.
        {zyl::kClockNode, kNothing, kBuffering, "timestamp",
         "stop, start, detect, buffer, timestamp", "audio, no timestamp"},
        {"on clock open errno=EIO", kNothing, kBuffering, "timestamp",
         "stop, start, detect, buffer, timestamp", "audio, no timestamp"},
        {"on clock read errno=EIO", kNothing, kBuffering, "timestamp",
         "stop, start, detect, buffer, timestamp", "audio, no timestamp"},
        {"on clock read short=0", kNothing, kBuffering, "timestamp",
         "stop, start, detect, buffer, timestamp", "audio, no timestamp"},
        {"on clock read short=3", kNothing, kBuffering, "timestamp",
         "stop, start, detect, buffer, timestamp", "audio, no timestamp"},
        {"on clock read torn=4 at=0", kNothing, kBuffering, "timestamp",
         "stop, start, detect, buffer, timestamp", "audio, no timestamp"},
        {"on clock open delay=50", kNothing, kBuffering, "timestamp", "read", "audio, timestamp"},
        {"on clock read delay=50", kNothing, kBuffering, "timestamp", "read", "audio, timestamp"},

        // Detections. A device that cannot be opened is tried again when the DSP is back.
        {zyl::kNotificationDevice, kNothing, "load", "start", "offline, online"},
        {"on notification open errno=EIO", kNothing, "load", "start", "offline, online"},
        {"on notification open times=3 errno=ENOENT", kNothing, "load", "start", "start"},
        {"on notification open delay=100", kNothing, "load", "start", "start"},
        {"on notification read times=3 errno=EIO", kNothing, "load, start", "detect", "start"},
        {"on notification read times=1 errno=ENODEV", kNothing, "load, start", "detect", "start"},
        {"on notification read times=1 errno=EAGAIN", kNothing, "load, start", "detect", "start"},
        {"on notification poll times=3 ready", kNothing, "load, start", "detect", "start"},
        {"on notification poll times=3 errno=EIO", kNothing, "load, start", "detect", "start"},
        {"on notification poll times=3 delay=100", kNothing, "load, start", "detect", "start"},
        {"on notification read times=1 errno=EINTR", kNothing, "load, start", "detect", "start"},
        {"on notification read times=1 delay=100", kNothing, "load, start", "detect", "start"},

        // Power and tuning: never the request's failure.
        {"/sys/power/wake_lock", kNothing, "", "dock", "undock, dock"},
        {"/sys/power/wake_unlock", kNothing, "dock", "undock", "dock, undock"},
        {"on wake_lock write short=3", kNothing, "", "dock", "undock, dock"},
        {"on wake_lock write delay=100", kNothing, "", "dock", "undock, dock"},
        {"on wake_unlock open errno=EIO", kNothing, "dock", "undock", "dock, undock"},
        {"on wake_lock write errno=EACCES", kNothing, "", "dock", "undock, dock"},
        {"on wake_lock open errno=EACCES", kNothing, "", "dock", "undock, dock"},
        {"on wake_unlock write errno=EIO", kNothing, "dock", "undock", "dock, undock"},
        {zyl::kTuningFile, kNothing, "built", "initialize", "online"},
        {"on tuning open errno=EIO", kNothing, "built", "initialize", "online"},
        {"on tuning read errno=EIO", kNothing, "built", "initialize", "online"},
        {"on tuning read short=20", kNothing, "built", "initialize", "online"},
        {"on tuning read delay=100", kNothing, "built", "initialize", "online"},
        {"on tuning read torn=1", kNothing, "built", "initialize", "online"},
};

class NodeFaultsTest : public BoardRigTest, public ::testing::WithParamInterface<size_t> {
  protected:
    static void SetUpTestSuite() {
        ResultTables::Get().Begin("Another node that fails",
                                  {"Fault", "From", "Request", "Result", "Clients afterwards",
                                   "Took", "Retry", "Clients then"});
    }

    void SetUp() override { tuning_ = TuningOf({275}); }
};

TEST_P(NodeFaultsTest, RequestEndsAsPredictedAndTheRetryWorks) {
    const NodeRow& row = kNodeRows[GetParam()];
    SCOPED_TRACE(std::string(row.rules) + " under \"" + row.request + "\"");
    NewRig();
    ASSERT_NO_FATAL_FAILURE(rig_->Reach(row.setup));
    std::optional<MissingNode> missing;
    if (*row.rules == '/') {
        missing.emplace(row.rules);
    } else {
        ASSERT_NO_FATAL_FAILURE(AddFaults(row.rules));
    }
    if (std::string(row.setup) == "built") BuildHal();  // Which is when the tuning file is read.

    rig_->WillFail(row.failing);
    const RequestResult request = rig_->CarryOut(row.request);

    rig_->ExpectAsPredicted(request, row.result);
    EXPECT_LT(request.took, milliseconds(1000));
    const std::string state = rig_->State();
    missing.reset();
    board_->faults().Clear();
    rig_->Mend();
    rig_->CarryOutAll(row.retry);
    rig_->ExpectClients();
    ResultTables::Get().Add({*row.rules == '/' ? std::string(row.rules) + " gone" : row.rules,
                             *row.setup == '\0' ? "idle" : row.setup, row.request, request.result,
                             state, Milliseconds(request.took), row.retry, rig_->State()});
    rig_->ExpectDetection();
}

INSTANTIATE_TEST_SUITE_P(, NodeFaultsTest, ::testing::Range<size_t>(0, std::size(kNodeRows)));

// --- what no status tells of ---

class LostDetectionTest : public BoardRigTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(LostDetectionTest, RecordThatCannotBeReadIsLostAndTheNextStartHearsAgain) {
    NewRig();
    ASSERT_NO_FATAL_FAILURE(rig_->Reach("load, start"));
    const size_t lost = AddFault(GetParam());

    PlayHotword();

    ASSERT_TRUE(board_->faults().WaitUntilFired(lost, 1, ::virtual_dsp::kDeadline));
    EXPECT_EQ("1 StartDetecting started", rig_->State());
    // What comes after the lost one is the first that the framework hears of.
    rig_->ExpectDetection(/*restart=*/true);
    EXPECT_EQ(1U, rig_->framework().events().size());
}

INSTANTIATE_TEST_SUITE_P(, LostDetectionTest,
                         ::testing::Values("on notification read times=1 short=39",
                                           "on notification read times=1 torn=1 at=4"));

// A call that the driver does not return from holds whoever made it, until the DSP is found to be
// down, which ends every call on its nodes.
struct HangRow {
    const char* rules;
    const char* setup;
    const char* request;
    const char* result;
    const char* state;
};

class DriverHangTest : public BoardRigTest, public ::testing::WithParamInterface<HangRow> {
  protected:
    static void SetUpTestSuite() {
        ResultTables::Get().Begin(
                "A call that the driver does not return from, until the DSP goes down",
                {"Fault", "From", "Request", "Result", "Clients afterwards",
                 "Ended after the DSP's end"});
    }
};

TEST_P(DriverHangTest, EndsWithTheDspAndTheReportsDoTheRest) {
    const HangRow& row = GetParam();
    SCOPED_TRACE(std::string(row.rules) + " under \"" + row.request + "\"");
    NewRig();
    ASSERT_NO_FATAL_FAILURE(rig_->Reach(row.setup));
    const size_t hang = AddFault(row.rules);
    auto request =
            std::async(std::launch::async, [&] { return rig_->CarryOutUnpredicted(row.request); });
    ASSERT_TRUE(board_->faults().WaitUntilFired(hang, 1, ::virtual_dsp::kDeadline));

    const auto down = steady_clock::now();
    board_->dsp().Crash();
    const RequestResult outcome = request.get();
    EXPECT_EQ(row.result, outcome.result);
    EXPECT_EQ(row.state, rig_->State());  // For which nobody may hold the lock any more.
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - down);
    EXPECT_LT(took, milliseconds(1000));
    board_->faults().Clear();
    board_->dsp().Boot();
    rig_->CarryOutAll("offline, online");
    rig_->ExpectDetection();
    ResultTables::Get().Add(
            {row.rules, row.setup, row.request, row.result, row.state, Milliseconds(took)});
}

INSTANTIATE_TEST_SUITE_P(
        , DriverHangTest,
        ::testing::Values(
                HangRow{"on command open times=1 hang", "load", "start", "-22", "1 ModelLoaded"},
                HangRow{"on command write times=1 hang", "load", "start", "-22", "1 ModelLoaded"},
                HangRow{"on command read times=1 hang", "load", "start", "-22", "1 ModelLoaded"},
                HangRow{"on model_data open times=1 hang", "load", "load music", "-22",
                        "1 ModelLoaded"},
                HangRow{"on model_data write after=1 times=1 hang", "load", "load music", "-22",
                        "1 ModelLoaded"},
                HangRow{"on hotword_pcm open times=1 hang", kBuffering, "read", "silence",
                        "1 Buffering started"},
                HangRow{"on hotword_pcm read times=1 hang", kBuffering, "read", "silence",
                        "1 Buffering started"},
                HangRow{"on clock read times=1 hang", kBuffering, "timestamp", "audio, timestamp",
                        "1 Buffering started"},
                HangRow{"on clock open times=1 hang", kBuffering, "timestamp",
                        "audio, no timestamp", "1 Buffering started"},
                HangRow{"on ambient_pcm open times=1 hang", kMusicBuffering, "read music",
                        "silence", "1 Buffering started"},
                HangRow{"on ambient_pcm read times=1 hang", kMusicBuffering, "read music",
                        "silence", "1 Buffering started"},
                // These hold the control thread, and with it the lock: the request has returned by
                // then.
                HangRow{"on notification open times=1 hang", "load", "start", "0",
                        "1 StartDetecting started"},
                HangRow{"on notification read times=1 hang", "load, start", "force", "0",
                        "1 StartDetecting started"}));

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
