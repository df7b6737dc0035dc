#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "host/virtual_dsp/nodes/fault_text.h"

namespace virtual_dsp {
namespace {

TEST(FaultTextTest, PrintedScriptReadsBackAsTheSame) {
    const std::string text =
            "seed 42\n"
            "on command reply id=227 after=1 times=1 errno=EIO\n"
            "on hotword_pcm read chance=0.1 short=512\n"
            "on notification read short=-1\n"
            "on model_data write torn=3 at=16\n"
            "on clock open delay=250\n"
            "on ambient_pcm poll ready\n"
            "on wake_lock write hang\n";

    const auto script =
            ParseFaults("  # all there is\n\n" + text + "on tuning open errno=ENOENT # no");

    ASSERT_TRUE(script.ok()) << script.error();
    EXPECT_EQ(text + "on tuning open errno=ENOENT\n", PrintFaults(*script));
    EXPECT_EQ(EIO, script->rules[0].effect.value);
}

TEST(FaultTextTest, ErrorsNameTheLineAndWhatWasExpected) {
    const std::pair<const char*, const char*> cases[] = {
            {"\nat command", "line 2: expected 'on' or 'seed', found at"},
            {"seed", "line 1: expected one number after 'seed', found seed"},
            {"on",
             "line 1: expected a node (command, model_data, hotword_pcm, ambient_pcm, "
             "notification, clock, wake_lock, wake_unlock, tuning), found the end of the line"},
            {"on command ioctl", "line 1: expected open, read, write, poll or reply, found ioctl"},
            {"on clock read",
             "line 1: expected an effect: errno=NAME, short=BYTES, torn=BYTES, "
             "delay=MS, hang or ready, found the end of the line"},
            {"on clock read errno=EFOO",
             "line 1: expected the name of an error, such as EIO, found errno=EFOO"},
            {"on clock read errno=ENOSYS",
             "line 1: expected an error other than ENOSYS, found errno=ENOSYS"},
            {"on clock read hang hang", "line 1: expected one effect only, found hang"},
            {"on clock read chance=2 hang",
             "line 1: expected a probability from 0 to 1, found chance=2"},
            {"on clock read delay=-1",
             "line 1: expected a number in range after '=', found delay=-1"},
            {"on clock read times=x hang",
             "line 1: expected a number in range after '=', found times=x"},
            {"on clock reply hang",
             "line 1: expected 'reply' with the node 'command' only, found clock"},
            {"on clock read ready", "line 1: expected 'ready' with 'poll' only, found read"},
            {"on clock open torn=1",
             "line 1: expected 'short' and 'torn' with read, write and reply only, found open"},
    };
    for (const auto& [text, message] : cases) {
        const auto script = ParseFaults(text);
        ASSERT_FALSE(script.ok()) << text;
        EXPECT_EQ(message, script.error());
    }
}

std::vector<bool> Decisions(FaultPlan& plan, NodeId node, bool with_others) {
    std::vector<bool> decisions;
    for (int i = 0; i < 200; ++i) {
        if (with_others) (void)plan.Next(NodeId::kClock, FaultOperation::kRead);
        decisions.push_back(plan.Next(node, FaultOperation::kRead).has_value());
    }
    return decisions;
}

TEST(FaultPlanTest, SameSeedGivesTheSameFaultsWhateverOtherNodesDo) {
    const std::string rules =
            "on clock read chance=0.5 hang\n"
            "on tuning read chance=0.5 hang\n";
    FaultPlan plan;
    const auto run = [&](const std::string& seed, bool with_others) {
        plan.Load(ParseFaults(seed + rules).value());
        return Decisions(plan, NodeId::kTuning, with_others);
    };
    const auto first = run("seed 5\n", false);

    EXPECT_EQ(first, run("seed 5\n", true));
    EXPECT_NE(first, run("seed 6\n", false));
    const auto fired = std::count(first.begin(), first.end(), true);
    EXPECT_TRUE(fired > 60 && fired < 140) << fired;
}

TEST(FaultPlanTest, FirstRuleThatFiresDecidesAndHidesTheCallFromTheRest) {
    FaultPlan plan;
    plan.Load(ParseFaults("on command reply id=227 after=1 times=2 errno=EIO\n"
                          "on command reply after=1 errno=EBUSY\n")
                      .value());
    std::vector<int> results;
    for (const uint16_t id : {227, 227, 228, 227, 227}) {
        const auto fault = plan.Next(NodeId::kCommand, FaultOperation::kReply, id);
        results.push_back(fault ? fault->effect.value : 0);
    }

    EXPECT_EQ((std::vector<int>{0, EIO, EBUSY, EIO, EBUSY}), results);
    EXPECT_EQ(2U, plan.Fired(0));
}

}  // namespace
}  // namespace virtual_dsp
