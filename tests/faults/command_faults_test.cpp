// A command goes wrong in every way there is, under every operation of the HAL that sends it.
#include <algorithm>
#include <cerrno>
#include <map>
#include <regex>

#include "host/virtual_dsp/dsp/command_table.h"
#include "tests/faults/board_rig.h"

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
    std::optional<DspOp> op;  // None: the oracle predicts that a failure changes nothing.
    bool alone;  // The request sends no other command: faults of the node itself hit this one.
    const char* setup;
    const char* request;
    const char* retry;
    const char* good_result = nullptr;  // Where the oracle knows none.
    const char* bad_result = nullptr;
};

constexpr CommandRow kCommandRows[] = {
        {282, DspOp::kQuery, true, "", "properties", "properties"},
        {261, DspOp::kLoad, false, "", "load", "load"},
        {262, DspOp::kUnload, true, "load", "unload", "unload"},
        {228, DspOp::kStop, false, "load, start", "unload", "unload"},
        {262, DspOp::kUnload, false, "load, start", "unload", "unload"},
        {227, DspOp::kStart, true, "load", "start", "start"},
        {227, DspOp::kStart, true, "load, start, detect", "start", "start"},
        {228, DspOp::kStop, true, "load, start", "stop", "stop"},
        {268, DspOp::kForce, true, "load, start", "force", "start"},
        {267, DspOp::kInternal, false, "", "internal", "internal"},
        {267, DspOp::kInternal, true, "load, start", "internal", "load"},
        {262, DspOp::kUnload, false, "internal", "stop internal", "internal"},
        {261, DspOp::kLoad, false, "offline, load, start", "online", "online"},
        {227, DspOp::kStart, false, "offline, load, start", "online", "online"},
        {206, DspOp::kEraser, false, "load, start", "speaker", "no speaker"},
        {339, DspOp::kReference, false, "", "dock", "online"},
        {342, DspOp::kMicSwap, true, "", "fan", "online"},
        {354, std::nullopt, true, "load, start, detect, buffer", "timestamp", "read",
         "audio, timestamp", "audio, no timestamp"},
};

struct Tally {
    int requests = 0;
    milliseconds worst{0};
};

class CommandFaultsTest : public BoardRigTest, public ::testing::WithParamInterface<size_t> {
  protected:
    static void SetUpTestSuite() {
        ResultTables::Get().Begin("A command that fails",
                                  {"Command", "From", "Request", "Result", "Clients afterwards",
                                   "Retry", "Clients then"});
    }

    static void TearDownTestSuite() {
        ResultTables::Get().Begin("The ways in which a command goes wrong",
                                  {"Fault", "The command comes to", "Carried out", "Requests tried",
                                   "Longest request"});
        for (const CommandFault& fault : kFaults) {
            const Tally& tally = tallies_[fault.name];
            ResultTables::Get().Add({fault.name,
                                     fault.status == 0 ? "success" : strerrorname_np(-fault.status),
                                     fault.carried_out ? "yes" : "no",
                                     std::to_string(tally.requests), Milliseconds(tally.worst)});
        }
    }

    const CommandRow& row() const { return kCommandRows[GetParam()]; }

    void Check(const CommandFault& fault) {
        SCOPED_TRACE(std::string(fault.name) + ": command " + std::to_string(row().id) +
                     " under \"" + row().request + "\" from \"" + row().setup + "\"");
        NewRig();
        ASSERT_NO_FATAL_FAILURE(rig_->Reach(row().setup));
        std::optional<MissingNode> missing;
        if (*fault.rules == '\0') {
            missing.emplace(zyl::kCommandDevice);
        } else {
            AddFaults(std::regex_replace(fault.rules, std::regex("ID"), std::to_string(row().id)));
        }

        // A forced detection that was carried out comes, whatever the framework was told.
        const bool is_told_otherwise = row().op == DspOp::kForce && fault.carried_out;
        if (fault.status != 0 && !is_told_otherwise) rig_->WillFail(row().op, fault.status);
        const RequestResult request = rig_->CarryOut(row().request);

        const std::string status = std::to_string(fault.status);
        rig_->ExpectAsPredicted(request, is_told_otherwise   ? status.c_str()
                                         : fault.status != 0 ? row().bad_result
                                                             : row().good_result);
        Tally& tally = tallies_[fault.name];
        ++tally.requests;
        tally.worst = std::max(tally.worst, request.took);
        const std::string state = rig_->State();
        missing.reset();
        board_->faults().Clear();
        rig_->Mend();
        if (fault.status != 0) {
            const RequestResult retried = rig_->CarryOut(row().retry);
            EXPECT_TRUE(IsSuccess(retried.result)) << retried.result;
            rig_->ExpectAsPredicted(retried);
            if (!is_told_otherwise) {
                seen_ = {row().op == DspOp::kForce ? "the command's" : request.result, state,
                         row().retry, rig_->State()};
            }
        }
        rig_->ExpectDetection();
    }

    std::vector<std::string> seen_;  // Of the last failure, as the table shows it.
    static std::map<std::string, Tally> tallies_;
};

std::map<std::string, Tally> CommandFaultsTest::tallies_;

TEST_P(CommandFaultsTest, RequestEndsAsPredictedAndTheRetryWorks) {
    for (const CommandFault& fault : kFaults) {
        const bool hits_others = std::string(fault.rules).find("ID") == std::string::npos;
        if (row().alone || !hits_others) Check(fault);
    }
    std::vector<std::string> cells = {::virtual_dsp::CommandName(static_cast<uint32_t>(row().id)),
                                      *row().setup == '\0' ? "idle" : row().setup, row().request};
    cells.insert(cells.end(), seen_.begin(), seen_.end());
    ResultTables::Get().Add(cells);
}

INSTANTIATE_TEST_SUITE_P(, CommandFaultsTest, ::testing::Range<size_t>(0, std::size(kCommandRows)));

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
