// A command goes wrong in every way there is, under every operation of the HAL that sends it.
#include <algorithm>
#include <cerrno>
#include <map>
#include <regex>

#include "host/virtual_dsp/dsp/command_table.h"
#include "tests/faults/board_bench.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::milliseconds;

struct CommandFault {
    const char* name;
    const char* rules;  // ID stands for the command's id; no rules: the node is gone.
    int status;         // What the command comes to: 0 or a negative errno.
    bool carried_out;   // By the DSP, whatever was heard of it.
};

constexpr CommandFault kFaults[] = {
        {"node gone", "", -EBADF, false},
        {"open fails", "on command open errno=EIO", -EBADF, false},
        {"write fails", "on command write id=ID errno=ENODEV", -ENODEV, false},
        {"write cut short", "on command write id=ID short=4", -EIO, false},
        {"written torn", "on command write id=ID torn=1 at=4", -EINVAL, false},
        {"refused", "on command reply id=ID errno=EBUSY", -EBUSY, false},
        {"poll fails", "on command reply id=ID delay=50\non command poll id=ID errno=EIO", -EIO,
         true},
        {"poll never ready", "on command poll id=ID hang", -ETIMEDOUT, true},
        {"poll ready too early", "on command reply id=ID delay=30\non command poll id=ID ready", 0,
         true},
        {"read fails", "on command read id=ID errno=EIO", -EIO, true},
        {"read interrupted", "on command read id=ID times=3 errno=EINTR", 0, true},
        {"read without an answer yet", "on command read id=ID times=3 errno=EAGAIN", 0, true},
        {"every call late",
         "on command open delay=20\non command write id=ID delay=20\n"
         "on command poll id=ID times=1 delay=20\non command read id=ID delay=20",
         0, true},
        {"reply cut short", "on command read id=ID short=7", -EIO, true},
        {"reply torn in its id", "on command reply id=ID torn=1 at=4", -ETIMEDOUT, true},
        {"reply torn in its length", "on command reply id=ID torn=1 at=2", -EIO, true},
        {"reply late", "on command reply id=ID delay=50", 0, true},
        {"reply too late", "on command reply id=ID delay=5000", -ETIMEDOUT, true},
        {"reply never", "on command reply id=ID hang", -ETIMEDOUT, true},
};

struct CommandRow {
    int id;
    bool alone;  // The request sends no other command: faults of the node itself hit this one.
    const char* setup;
    const char* request;
    const char* good_result;
    const char* bad_result;  // "status": the command's.
    const char* good_state;
    const char* bad_state;
    const char* retry;
    const char* retry_state;
};

constexpr CommandRow kCommandRows[] = {
        {282, true, "", "properties", "0", "-22", "none", "none", "properties", "none"},
        {261, false, "", "load", "0", "-22", "1 ModelLoaded", "none", "load", "1 ModelLoaded"},
        {262, true, "load", "unload", "0", "-22", "none", "1 ModelLoaded", "unload", "none"},
        {228, false, "load, start", "unload", "0", "-22", "none", "1 StartDetecting started",
         "unload", "none"},
        {262, false, "load, start", "unload", "0", "-22", "none", "1 StartDetecting started",
         "unload", "none"},
        {227, true, "load", "start", "0", "-22", "1 StartDetecting started", "1 ModelLoaded",
         "start", "1 StartDetecting started"},
        {227, true, "load, start, detect", "start", "0", "-22", "1 StartDetecting started",
         "1 CallbackProcessing started", "start", "1 StartDetecting started"},
        {228, true, "load, start", "stop", "0", "-22", "1 ModelLoaded", "1 StartDetecting started",
         "stop", "1 ModelLoaded"},
        {268, true, "load, start", "force", "0", "status", "1 CallbackProcessing started",
         "1 StartDetecting started", "start", "1 StartDetecting started"},
        {267, false, "", "internal", "0", "-22", "0 InternalForceDetected internal", "none",
         "internal", "0 InternalForceDetected internal"},
        {267, true, "load, start", "internal", "0", "-22",
         "1 InternalForceDetected started internal", "none", "load", "1 ModelLoaded"},
        {262, false, "internal", "stop internal", "0", "-22", "none", "none", "internal",
         "0 InternalForceDetected internal"},
        {261, false, "offline, load, start", "online", "done", "done", "1 StartDetecting started",
         "1 ModelUnloaded started", "online", "1 StartDetecting started"},
        {227, false, "offline, load, start", "online", "done", "done", "1 StartDetecting started",
         "1 ModelLoaded started", "online", "1 StartDetecting started"},
        {206, false, "load, start", "speaker", "done", "done", "1 StartDetecting started aec",
         "1 StartDetecting started aec", "no speaker", "1 StartDetecting started"},
        {339, false, "", "dock", "done", "done", "none", "none", "online", "none"},
        {342, true, "", "fan", "0", "0", "none", "none", "online", "none"},
        {354, true, "load, start, detect, buffer", "timestamp", "audio, timestamp",
         "audio, no timestamp", "1 Buffering started", "1 Buffering started", "read",
         "1 Buffering started"},
};

struct Tally {
    int requests = 0;
    milliseconds worst{0};
};

class CommandFaultsTest : public BoardBenchTest, public ::testing::WithParamInterface<size_t> {
  protected:
    static void SetUpTestSuite() {
        Report::Get().Begin("A command that fails",
                            {"Command", "From", "Request", "Result", "Clients afterwards", "Retry",
                             "Clients then"});
    }

    static void TearDownTestSuite() {
        Report::Get().Begin("The ways in which a command goes wrong",
                            {"Fault", "The command comes to", "Carried out", "Requests tried",
                             "Longest request"});
        for (const CommandFault& fault : kFaults) {
            const Tally& tally = tallies_[fault.name];
            Report::Get().Add({fault.name,
                               fault.status == 0 ? "success" : strerrorname_np(-fault.status),
                               fault.carried_out ? "yes" : "no", std::to_string(tally.requests),
                               Milliseconds(tally.worst)});
        }
    }

    const CommandRow& row() const { return kCommandRows[GetParam()]; }

    void Check(const CommandFault& fault) {
        SCOPED_TRACE(std::string(fault.name) + ": command " + std::to_string(row().id) +
                     " under \"" + row().request + "\" from \"" + row().setup + "\"");
        NewBench();
        ASSERT_NO_FATAL_FAILURE(bench_->Reach(row().setup));
        std::optional<MissingNode> missing;
        if (*fault.rules == '\0') {
            missing.emplace(zyl::kCommandDevice);
        } else {
            AddFaults(std::regex_replace(fault.rules, std::regex("ID"), std::to_string(row().id)));
        }

        const Outcome outcome = bench_->CarryOut(row().request);

        ExpectOutcome(fault, outcome.result);
        Tally& tally = tallies_[fault.name];
        ++tally.requests;
        tally.worst = std::max(tally.worst, outcome.took);
        missing.reset();
        board_->faults().Clear();
        if (fault.status != 0) {
            const Outcome retried = bench_->CarryOut(row().retry);
            EXPECT_TRUE(IsSuccess(retried.result)) << retried.result;
            EXPECT_EQ(row().retry_state, bench_->State());
        }
        bench_->ExpectDetection();
    }

    void ExpectOutcome(const CommandFault& fault, const std::string& result) {
        const std::string bad = row().bad_result;
        const bool failed = fault.status != 0;
        EXPECT_EQ(!failed           ? row().good_result
                  : bad == "status" ? std::to_string(fault.status)
                                    : bad,
                  result);
        // A forced detection that was carried out comes, whatever the framework was told.
        const bool forced = std::string(row().request) == "force" && fault.carried_out;
        if (forced) bench_->framework().WaitForEvents(1);
        EXPECT_EQ(failed && !forced ? row().bad_state : row().good_state, bench_->State());
    }

    static std::map<std::string, Tally> tallies_;
};

std::map<std::string, Tally> CommandFaultsTest::tallies_;

TEST_P(CommandFaultsTest, RequestEndsAsTheTableSaysAndTheRetryWorks) {
    for (const CommandFault& fault : kFaults) {
        const bool hits_others = std::string(fault.rules).find("ID") == std::string::npos;
        if (row().alone || !hits_others) Check(fault);
    }
    const std::string bad = row().bad_result;
    Report::Get().Add({::virtual_dsp::CommandName(static_cast<uint32_t>(row().id)),
                       *row().setup == '\0' ? "idle" : row().setup, row().request,
                       bad == "status" ? "the command's" : bad, row().bad_state, row().retry,
                       row().retry_state});
}

INSTANTIATE_TEST_SUITE_P(, CommandFaultsTest, ::testing::Range<size_t>(0, std::size(kCommandRows)));

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
