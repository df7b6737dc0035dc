#include <functional>
#include <thread>

#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

using std::chrono::steady_clock;

using CommandTest = AdapterTest;

TEST_F(CommandTest, NodesAreWhereTheDriversPutThem) {
    for (const char* path :
         {"/dev/zcd-sound_trigger", "/dev/zcd-model_data", "/dev/zcd-hotword_pcm",
          "/dev/zcd-ambient_pcm", "/dev/zcd-hotword_notification",
          "/sys/devices/platform/17000000.zyl/zyl_clock_and_kernel_boottime",
          "/vendor/etc/zyl/smartfeature.qstf"}) {
        EXPECT_TRUE(std::filesystem::is_symlink(path)) << path;
    }
}

TEST_F(CommandTest, EveryCallSendsItsLiteralBytes) {
    std::vector<uint8_t> block;
    uint32_t value = 0xFFFFFFF6;
    for (const uint32_t id : {275, 277, 279, 297, 299, 345, 346, 347}) {
        block = block + TuningRecord(id, 4, {value++});
    }
    board_->SetTuningFile(TuningImage({{kDefaultMode, {block}}}));
    NewAdapter();
    ZylSoundTriggerAdapter& dsp = *adapter_;
    const char byte = 'm';

    // Reserved, sequence, size, id, reserved; then the payload.
    const std::pair<std::function<void()>, std::vector<std::string>> rows[] = {
            {[&] { (void)dsp.SetupEraserInDsp(true); }, {"00??0800ce000000"}},
            {[&] { (void)dsp.SetupEraserInDsp(false); }, {"00??0800cf000000"}},
            {[&] { (void)dsp.SetupMicSwapInDsp(true); }, {"00??080056010000"}},
            {[&] { (void)dsp.SetupMicSwapInDsp(false); }, {"00??080057010000"}},
            {[&] { (void)dsp.SetupNeuralAecInDsp(true); }, {"00??08005e010000"}},
            {[&] { (void)dsp.SetupNeuralAecInDsp(false); }, {"00??08005f010000"}},
            {[&] { (void)dsp.SetupReferenceSource(true); }, {"00??0c004501000002000000"}},
            {[&] { (void)dsp.SetupReferenceSource(false); }, {"00??0c004501000000000000"}},
            {[&] { (void)dsp.SetupApProcessWithDock(true); }, {"00??0a00530100000100"}},
            {[&] { (void)dsp.SetupApProcessWithDock(false); }, {"00??0a00530100000000"}},
            {[&] { (void)dsp.LoadSoundModelToDsp(1, 1, &byte); },
             {"00??0c000401000000000000", "00??080005010000"}},
            {[&] { (void)dsp.LoadSoundModelToDsp(2, 1, &byte); },
             {"00??0c000701000000000000", "00??080008010000"}},
            {[&] { (void)dsp.LoadSoundModelToDsp(3, 1, &byte); },
             {"00??0c001f01000000000000", "00??080020010000"}},
            {[&] { (void)dsp.InternalHotwordRecognition(0x89ABCDEF); },
             {"00??10000b010000efcdab8900000000"}},
            {[&] { (void)dsp.GetLibraryArchitecture(); },
             {"00??4c001a010000" + std::string(136, '0')}},
            {[&] { (void)dsp.SendTuningToDsp(1); },
             {"00??0c0013010000f6ffffff", "00??0c0015010000f7ffffff", "00??0c0017010000f8ffffff",
              "00??0c0029010000f9ffffff", "00??0c002b010000faffffff", "00??0c0059010000fbffffff",
              "00??0c005a010000fcffffff", "00??0c005b010000fdffffff"}},
    };
    for (const auto& [call, bytes] : rows) {
        call();
        EXPECT_EQ(bytes, TakeSent());
    }
}

// By their bytes, of which all but the id are the same: other, load, start, stop, unload, force.
TEST_F(CommandTest, EveryActionOfEveryEngineIsACommandOrRefused) {
    using Ids = std::vector<std::string>;
    const Ids invalid(7);
    const std::pair<int, Ids> engines[] = {
            {kHotword, {"0c01", "0501", "e300", "e400", "0601", "0c01", "0c01"}},
            {kAmbient, {"0d01", "0801", "0001", "0101", "0901", "0d01", "0d01"}},
            {kAmbientBreak, {"", "2001", "1b01", "1c01", "2101", "", ""}},
            {-1, invalid},
            {0, invalid},
            {4, invalid},
            {257, invalid},
    };
    for (const auto& [engine, ids] : engines) {
        const std::string refusal =
                "DoModelAction: Invalid command with model type : " + std::to_string(engine);
        for (int action = 0; action <= 6; ++action) {
            SCOPED_TRACE(refusal + " action " + std::to_string(action));
            const std::string id = ids[static_cast<size_t>(action)];

            const int result = Peer().DoModelAction(engine, action);

            const auto sent = TakeCommands();
            if (id.empty()) {
                EXPECT_EQ(-EINVAL, result);
                EXPECT_TRUE(sent.empty());
                EXPECT_THAT(log_.Take(), ElementsAre(Line('E', refusal)));
            } else {
                EXPECT_THAT(HexOf(sent), ElementsAre("00??0800" + id + "0000"));
                EXPECT_EQ(sent.at(0).status, result) << "the DSP's answer is passed on";
                EXPECT_THAT(log_.Take(), ElementsAre()) << "a failed command is not logged here";
            }
        }
    }
    EXPECT_EQ(0, adapter_->StartDetectionInDsp(1) + adapter_->StopDetectionInDsp(2));
    EXPECT_EQ(0, adapter_->UnloadSoundModelFromDsp(3));
    EXPECT_EQ(-EINVAL, adapter_->TriggerForceRecognition(2)) << "there is no model";
    EXPECT_EQ((std::vector<uint32_t>{227, 257, 289, 269}), TakeIds());
}

TEST_F(CommandTest, SequenceNumbersDifferByOneAndWrapAround) {
    for (int i = 0; i < 300; ++i) ASSERT_EQ(0, adapter_->SetupMicSwapInDsp(i % 2 == 0));

    const auto sent = TakeCommands();
    ASSERT_EQ(300U, sent.size());
    for (size_t i = 1; i < sent.size(); ++i) {
        const auto next = static_cast<uint8_t>(sent[i - 1].bytes[1] + 1);
        ASSERT_EQ(next, sent[i].bytes[1]) << i;
    }
}

TEST_F(CommandTest, ArchitectureIsTheTextUpToItsNulOrAllOfIt) {
    const std::pair<std::string, std::string> texts[] = {
            {std::string("arm\0v8", 6), "arm"}, {std::string(70, 'x'), std::string(64, 'x')}};
    for (const auto& [in_dsp, expected] : texts) {
        BoardOptions options;
        options.dsp.library_version = 0xFFFFFFFE;
        options.dsp.architecture = in_dsp;
        NewBoard(options);

        const auto library = adapter_->GetLibraryArchitecture();

        ASSERT_TRUE(library);
        EXPECT_EQ(0xFFFFFFFE, library->library_version);
        EXPECT_EQ(expected, library->architecture);
    }
}

// Whatever becomes of one exchange: it ends in time with the errno that tells what happened, the
// device is closed, and the next exchange gets its own reply.
TEST_F(CommandTest, BrokenExchangeFailsInTimeAndDoesNotReachTheNext) {
    const std::pair<const char*, int> cases[] = {
            {"open errno=ENOENT", -EBADF},     {"write errno=ENOSPC", -ENOSPC},
            {"write short=10", -EIO},          {"write short=0", -EIO},
            {"reply errno=EBUSY", -EBUSY},     {"read errno=EREMOTEIO", -EREMOTEIO},
            {"reply short=75", -EIO},          {"reply short=4", -EIO},
            {"reply short=0", -EIO},           {"reply torn=2 at=2", -EIO},
            {"reply torn=1 at=1", -ETIMEDOUT}, {"reply torn=2 at=4", -ETIMEDOUT},
            {"reply hang", -ETIMEDOUT},        {"reply delay=400", -ETIMEDOUT},
    };
    const size_t descriptors = OpenDescriptors();
    for (const auto& [fault, status] : cases) {
        SCOPED_TRACE(fault);
        SetFaults({"on command " + std::string(fault)});
        const auto begin = steady_clock::now();

        EXPECT_FALSE(adapter_->GetLibraryArchitecture());

        EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5));
        const std::string text = "GetLibraryArchitecture: Error with: " + std::to_string(status);
        EXPECT_THAT(log_.Take(), ElementsAre(Line('E', text)));
        EXPECT_LE(TakeSent().size(), 1U) << "it was sent again";
        board_->faults().Clear();
        EXPECT_EQ(0, adapter_->SetupReferenceSource(true)) << "an old reply was taken for its own";
        EXPECT_EQ("arm", adapter_->GetLibraryArchitecture().value().architecture);
        EXPECT_EQ(2U, TakeSent().size());
        EXPECT_EQ(descriptors, OpenDescriptors());
    }
}

TEST_F(CommandTest, CommandFailsWhenTheDspGoesAndWorksWhenItIsBack) {
    AddFault("on command reply hang");
    const size_t waiting = AddFault("on command poll delay=0");
    std::thread crash([&] {
        EXPECT_TRUE(board_->faults().WaitUntilFired(waiting, 1, kDeadline));
        board_->dsp().Crash();
    });
    EXPECT_EQ(-EIO, adapter_->SetupEraserInDsp(true)) << "it was waiting for its reply";
    crash.join();
    EXPECT_EQ(-ENODEV, adapter_->SetupEraserInDsp(true)) << "it was not even sent";

    board_->faults().Clear();
    board_->dsp().Boot();

    EXPECT_EQ(0, adapter_->SetupEraserInDsp(true));
    EXPECT_EQ(-EINVAL, adapter_->StartDetectionInDsp(kAmbient)) << "its model is gone";
    EXPECT_THAT(log_.Take(), ElementsAre()) << "callers log what they make of a failure";
}

// Three of the threads move models, whose chunks must not mix, between the others' commands.
TEST_F(CommandTest, CommandsOfManyThreadsStayWholeAndInStep) {
    std::vector<std::thread> threads;
    for (int thread = 1; thread <= 16; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 20; ++i) {
                if (thread <= 3) {
                    EXPECT_EQ(0, Load(thread, Model(thread, 40000)));
                } else if (thread % 2 == 0) {
                    EXPECT_EQ(0, adapter_->SetupReferenceSource(i % 2 == 0));
                } else {
                    const auto library = adapter_->GetLibraryArchitecture();
                    EXPECT_EQ("arm", library.value_or(LibraryArchitecture{}).architecture);
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    for (const int engine : {kHotword, kAmbient, kAmbientBreak}) {
        EXPECT_EQ(Model(engine, 40000), board_->dsp().model_bytes(static_cast<Engine>(engine)));
    }
    const auto sent = TakeCommands();
    EXPECT_EQ(3U * 20 * 4 + 13 * 20, sent.size());
    for (const auto& command : sent)
        EXPECT_EQ(0, command.status) << ::virtual_dsp::ToText({0, command});
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
