#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

using Steps = std::vector<std::string>;

class DownloadTest : public AdapterTest {
  protected:
    // What the model-data device and the command device took, in order, such as "16384 bytes" or
    // "260 at 0"; commands that failed end in "!".
    Steps TakeSteps() {
        Steps steps;
        for (const auto& entry : board_->dsp().journal().Snapshot()) {
            if (const auto* chunk = entry.As<::virtual_dsp::ChunkTaken>()) {
                steps.push_back(std::to_string(chunk->taken) + " bytes");
            } else if (const auto* command = entry.As<CommandAnswered>()) {
                uint32_t offset = 0;
                const bool has_offset = command->bytes.size() == 12;
                if (has_offset) memcpy(&offset, &command->bytes[8], sizeof(offset));
                steps.push_back(std::to_string(command->id.value()) +
                                (has_offset ? " at " + std::to_string(offset) : "") +
                                (command->status == 0 ? "" : "!"));
            }
        }
        board_->dsp().journal().Clear();
        return steps;
    }
};

TEST_F(DownloadTest, EveryByteArrivesInItsPlaceInChunksOf16384) {
    const std::tuple<int, std::string, std::string> engines[] = {
            {kHotword, "260", "261"}, {kAmbient, "263", "264"}, {kAmbientBreak, "287", "288"}};
    for (const auto& row : engines) {
        const int engine = std::get<0>(row);
        const std::string write = std::get<1>(row) + " at ";
        const std::string load = std::get<2>(row);
        const auto in_dsp = [&] { return board_->dsp().model_bytes(static_cast<Engine>(engine)); };

        EXPECT_EQ(-EINVAL, Load(engine, {})) << "the DSP has nothing to load";
        EXPECT_EQ((Steps{load + "!"}), TakeSteps());

        EXPECT_EQ(-EINVAL, Load(engine, {0x5A})) << "the DSP does not take this for a model";
        EXPECT_EQ((Steps{"1 bytes", write + "0", load + "!"}), TakeSteps());
        EXPECT_EQ((std::vector<uint8_t>{0x5A}), in_dsp());

        EXPECT_EQ(0, Load(engine, Model(engine, 16384)));
        EXPECT_EQ((Steps{"16384 bytes", write + "0", load}), TakeSteps());
        EXPECT_EQ(Model(engine, 16384), in_dsp());

        EXPECT_EQ(0, Load(engine, Model(engine, 40000)));
        EXPECT_EQ((Steps{"16384 bytes", write + "0", "16384 bytes", write + "16384", "7232 bytes",
                         write + "32768", load}),
                  TakeSteps());
        EXPECT_EQ(Model(engine, 40000), in_dsp());
    }
    EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(DownloadTest, UnknownEngineIsSeenAfterTheFirstChunk) {
    EXPECT_EQ(-EINVAL, Load(4, Model(kHotword, 40000)));
    EXPECT_EQ((Steps{"16384 bytes"}), TakeSteps());
    EXPECT_EQ(-EINVAL, Load(4, {})) << "without data it is the load that is refused";
    EXPECT_EQ(Steps(), TakeSteps());

    EXPECT_THAT(log_.Take(),
                ElementsAre(Line('E', "CreateWriteModelCommand: wrong model type: 4"),
                            Line('E', "WriteSoundModelData: Create write command failure"),
                            Line('E', "DoModelAction: Invalid command with model type : 4")));
}

TEST_F(DownloadTest, ChunkThatIsNotTakenWholeEndsTheDownload) {
    const size_t descriptors = OpenDescriptors();
    const std::tuple<std::string, std::string, Steps> cases[] = {
            {"write after=1 short=100", "100", {"16384 bytes", "260 at 0", "100 bytes"}},
            {"write after=1 errno=ENOSPC", "-1", {"16384 bytes", "260 at 0"}},
            {"write short=0", "0", {}},
            {"open errno=ENOENT", "-1", {}},
    };
    for (const auto& [fault, written, steps] : cases) {
        SCOPED_TRACE(fault);
        SetFaults({"on model_data " + fault});

        EXPECT_EQ(-EINVAL, Load(kHotword, Model(kHotword, 40000)));

        EXPECT_EQ(steps, TakeSteps()) << "chunks before it stay, and nothing comes after it";
        const std::string text = "WriteSoundModelData: write model data failure: " + written;
        EXPECT_THAT(log_.Take(), ElementsAre(Line('E', text)));
        EXPECT_EQ(descriptors, OpenDescriptors());
    }
    EXPECT_EQ(10U, board_->faults().Fired(0)) << "attempts to open the missing device";

    SetFaults({"on model_data open times=9 errno=ENOENT"});
    EXPECT_EQ(0, Load(kHotword, Model(kHotword))) << "it was only late";
}

TEST_F(DownloadTest, OnlyTheLastWriteCommandCounts) {
    const auto model = Model(kHotword, 40000);
    const Steps written = {"16384 bytes",  "260 at 0",   "16384 bytes",
                           "260 at 16384", "7232 bytes", "260 at 32768"};
    Steps loaded = written;
    loaded.push_back("261");

    SetFaults({"on command reply id=260 times=2 torn=1 at=2"});
    EXPECT_EQ(0, Load(kHotword, model)) << "carried out by the DSP, but with broken replies";
    EXPECT_EQ(loaded, TakeSteps());
    EXPECT_EQ(model, board_->dsp().model_bytes(Engine::kHotword));

    SetFaults({"on command reply id=260 after=2 torn=1 at=2"});
    EXPECT_EQ(-EIO, Load(kHotword, model));
    EXPECT_EQ(written, TakeSteps()) << "loaded all the same";

    SetFaults({"on command reply id=260 after=1 times=1 errno=EBUSY"});
    EXPECT_EQ(-EINVAL, Load(kHotword, model)) << "the DSP refuses a chunk after a gap";
    EXPECT_EQ((Steps{"16384 bytes", "260 at 0", "16384 bytes", "7232 bytes", "260 at 32768!"}),
              TakeSteps());
}

TEST_F(DownloadTest, NegativeSizeIsRefusedBeforeTheDeviceIsTouched) {
    const size_t opened = AddFault("on model_data open delay=0");

    for (const int size : {-1, INT32_MIN}) {
        EXPECT_EQ(-EINVAL, adapter_->LoadSoundModelToDsp(kHotword, size, "model"));
        EXPECT_EQ(1U, log_.Take().size()) << "it is not said why";
    }

    EXPECT_EQ(Steps(), TakeSteps());
    EXPECT_EQ(0U, board_->faults().Fired(opened));
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
