#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

constexpr int kDefault = 1;
constexpr int kDocked = 2;

class TuningTest : public AdapterTest {
  protected:
    void LoadTuning(const std::vector<uint8_t>& image) {
        board_->SetTuningFile(image);
        NewAdapter();
    }
};

TEST_F(TuningTest, EachModeSendsItsOwnBlocksRecordByRecord) {
    const auto first = TuningRecord(275, 4, {0xFFFFFFF6}) + TuningRecord(347, 4, {0x12345678});
    LoadTuning(TuningImage({{kDefaultMode, {first, {}, TuningRecord(275, 4, {7})}},
                            {kDockedMode, {TuningRecord(345, 4, {0x80000000})}}}));
    board_->RemoveTuningFile();  // It is read once only.

    EXPECT_EQ(0, adapter_->SendTuningToDsp(kDefault));
    EXPECT_THAT(log_.Take(),
                ElementsAre(Line('I', "SendTuningToDsp:param id: 275, param value: -10"),
                            Line('I', "SendTuningToDsp:param id: 347, param value: 305419896"),
                            Line('I', "SendTuningToDsp:param id: 275, param value: 7")));
    EXPECT_THAT(TakeSent(), ElementsAre("00??0c0013010000f6ffffff", "00??0c005b01000078563412",
                                        "00??0c001301000007000000"));
    EXPECT_EQ(0, adapter_->SendTuningToDsp(kDocked));
    EXPECT_THAT(TakeSent(), ElementsAre("00??0c005901000000000080"));
}

// No file that can be used, or no such type, is no failure: nothing is sent, and the log says why.
TEST_F(TuningTest, NothingToSendIsSuccessWithAWarning) {
    const auto image = TuningImage({{kDefaultMode, {TuningRecord(275, 4, {1})}}});
    auto version_2 = image;
    version_2[4] = 2;
    const std::string tag = " Sthal::ZylSoundTriggerTuningManager: ";
    const std::string missing = "W" + tag + "GetTuningData: Tuning file doesn't exist";
    const std::string type = "W" + tag + "GetTuningData: Tuning type is not support ";
    const std::string version =
            "W" + tag + "ZylSoundTriggerTuningManager: incorrect version of tuning file";
    const std::string open_failure = "E" + tag +
                                     "ZylSoundTriggerTuningManager: failed to open tuning file:" +
                                     "/vendor/etc/zyl/smartfeature.qstf";
    const auto no_data = [](const std::string& type_text) {
        return Line('W', "SendTuningToDsp: Can't get tuning data for type " + type_text);
    };
    using File = std::optional<std::vector<uint8_t>>;
    const std::tuple<File, std::string, int, Lines> cases[] = {
            {std::nullopt, "", kDefault, {open_failure, missing, no_data("Default")}},
            {image, "open errno=EACCES", kDocked, {open_failure, missing, no_data("Docked")}},
            {std::vector<uint8_t>(), "", kDefault, {version, no_data("Default")}},
            {version_2, "", kDefault, {version, no_data("Default")}},
            {image, "read short=0", kDefault, {no_data("Default")}},
            {image, "read errno=EIO", kDefault, {no_data("Default")}},
            {image, "", kDocked, {no_data("Docked")}},
            {image, "", 0, {type, no_data("Unknown")}},
            {image, "", 99, {type, no_data("99")}},
            {image, "", -1, {type, no_data("-1")}},
    };
    for (const auto& [file, fault, tuning_type, lines] : cases) {
        SCOPED_TRACE(fault + " type " + std::to_string(tuning_type));
        board_->RemoveTuningFile();
        if (file) board_->SetTuningFile(*file);
        board_->faults().Clear();
        if (!fault.empty()) AddFault("on tuning " + fault);
        NewAdapter();

        EXPECT_EQ(0, adapter_->SendTuningToDsp(tuning_type));

        auto logged = log_.Take();
        std::erase_if(logged,
                      [](const auto& line) { return line.find("TamberloConfig") != line.npos; });
        EXPECT_EQ(lines, logged);
        EXPECT_THAT(TakeSent(), ElementsAre());
    }
    EXPECT_TRUE(ZylSoundTriggerTuningManager("/vendor/etc/zyl").GetTuningData(kDefault).empty())
            << "a folder is no tuning file";
}

TEST_F(TuningTest, WalkStopsAtTheRecordThatCannotBeSent) {
    const auto good = TuningRecord(275, 4, {1});
    const auto after = TuningRecord(277, 4, {9});
    AddFault("on command reply id=299 errno=EBUSY");
    using Ids = std::vector<uint32_t>;
    const std::tuple<const char*, std::vector<uint8_t>, int, Ids> cases[] = {
            {"unknown", TuningRecord(276, 4, {1}) + after, -EINVAL, {275}},
            {"above", TuningRecord(348, 4, {1}) + after, -EINVAL, {275}},
            {"beyond 16 bits", TuningRecord(0x10000 + 277, 4, {1}) + after, -EINVAL, {275}},
            {"L of 8", TuningRecord(279, 8, {5, 276}) + after, 0, {275, 279, 277, 277}},
            {"L of 0", TuningRecord(279, 0, {}) + after, -EINVAL, {275}},
            {"L of 3", TuningRecord(279, 3, {5}) + after, -EINVAL, {275}},
            {"L beyond the block", TuningRecord(279, 8, {5}), -EINVAL, {275}},
            {"L that wraps around", TuningRecord(279, 0xFFFFFFF8, {5}) + after, -EINVAL, {275}},
            {"no value", TuningRecord(279, 4, {}), -EINVAL, {275}},
            {"refused by the DSP", TuningRecord(299, 4, {1}) + after, -EBUSY, {275}},
            {"half a header", {0x17, 0x01, 0, 0}, -EINVAL, {275}},
    };
    for (const auto& [name, record, result, sent] : cases) {
        SCOPED_TRACE(name);
        LoadTuning(TuningImage({{kDefaultMode, {good + record, after}}}));
        (void)log_.Take();

        EXPECT_EQ(result, adapter_->SendTuningToDsp(kDefault));

        EXPECT_EQ(sent, TakeIds()) << "what came before stays applied";
        EXPECT_EQ(name == std::string("unknown"),
                  log_.Take().back() == Line('W', "SendTuningToDsp: Unsupported param id: 276"));
    }
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
