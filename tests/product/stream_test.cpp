// The driver operations behind a capture stream.
#include <chrono>
#include <climits>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::steady_clock;

class StreamTest : public RunningHalTest {
  protected:
    std::unique_ptr<SoundTriggerDriverOperations> Build(int channels, bool is_internal = false) {
        SoundTriggerDriverOperationsBuilder builder;
        builder.hal = hal_.get();
        builder.io_handle = 10;
        builder.channel_count = channels;
        builder.is_internal_force = is_internal;
        return builder.Build();
    }
    // A stream on a detection of its own.
    void Open(int channels, bool is_hotword = true) {
        (void)Start(is_hotword ? KEYPHRASE : GENERIC, 10);
        Detect(is_hotword ? kHotword : kAmbient);
        stream_ = Build(channels);
        EXPECT_TRUE(stream_->Start());
    }
    // The bytes of one read into a buffer that ends where it must.
    std::string Read(int size) {
        const std::unique_ptr<unsigned char[]> buffer(new unsigned char[static_cast<size_t>(size)]);
        const int count = stream_->Read(buffer.get(), size);
        EXPECT_GE(count, 0);
        return {reinterpret_cast<char*>(buffer.get()), static_cast<size_t>(std::max(count, 0))};
    }
    std::pair<long, long> Position() {
        std::pair<long, long> position;
        EXPECT_TRUE(stream_->GetPosition(position.first, position.second));
        return position;
    }

    std::unique_ptr<SoundTriggerDriverOperations> stream_;
};

TEST_F(StreamTest, PositionAddsTheCumulativeCountToTheHotwordsInstantOnEachRead) {
    Open(1);
    (void)Read(2048);
    const long before = steady_clock::now().time_since_epoch().count();
    const auto [frames, time_ns] = Position();
    EXPECT_EQ(1024, frames);
    EXPECT_LE(before, time_ns) << "not the clock's";
    EXPECT_GE(steady_clock::now().time_since_epoch().count(), time_ns) << "not the clock's";

    dsp_.timestamp_ns = 5'000'000'000;
    (void)Read(2048);
    EXPECT_EQ(std::pair(2048L, 5'000'000'000), Position());
    (void)Read(2048);
    EXPECT_EQ(std::pair(3072L, 5'000'000'000 + 3072 * 62500), Position());
    (void)Read(2048);
    EXPECT_EQ(std::pair(4096L, 5'000'000'000 + (3072 + 4096) * 62500), Position());
}

TEST_F(StreamTest, SmallAndOddReadsStayWithinTheirBuffer) {
    std::string pattern;
    for (int k = 0; k < 4096; ++k) pattern += static_cast<char>(k % 251);
    const auto read_all = [&](std::initializer_list<int> sizes, bool is_hotword) {
        for (const int size : sizes) {
            const int delivered = is_hotword ? size : size / 2 * 2;
            EXPECT_EQ(pattern.substr(0, static_cast<size_t>(delivered)), Read(size)) << size;
        }
        EXPECT_EQ(0, hal_->UnloadSoundModel(1));
    };
    Open(1);
    read_all({0, 1, 2, 255, 2047, 2048}, true);
    Open(2);
    read_all({1, 4, 2047, 2050, 4096}, true);
    Open(3);  // Any count but 1 gets what the DSP gives.
    read_all({6, 2047, 4096}, true);
    Open(1, false);
    read_all({1, 3, 2047, 2048, 2049}, false);
}

TEST_F(StreamTest, DspThatHasGoneIsSilenceAtThePaceOfAudioThatDoesNotCount) {
    Open(2);
    Online(false);
    const auto start = steady_clock::now();
    EXPECT_EQ(std::string(500, '\0'), Read(500));
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(64));
    EXPECT_EQ(0, Position().first);
}

TEST_F(StreamTest, BadArgumentsAreRefusedBeforeTheDspIsAsked) {
    const std::string read = "E DriverOperations: Read: Invalid ";
    unsigned char buffer[64];
    long frames = -7;
    Open(2);
    dsp_.Script({.call = "Read(1,64,2)"});  // Which is the only one to come.
    dsp_.Script({.call = "Read", .times = ScriptedAdapter::kNever});
    Check(-EINVAL, stream_->Read(nullptr, 64));
    Check(-EINVAL, stream_->Read(buffer, INT_MIN), "", {read + "size -2147483648"});
    Check(-EINVAL, stream_->Write(buffer, 64));
    Check(-EINVAL, Build(0)->Read(buffer, 64), "", {read + "channel count 0"});
    for (const int count : {-1, INT_MAX}) {
        Check(-EINVAL, Build(count)->Read(buffer, 64), "",
              {read + "channel count " + std::to_string(count)});
    }
    Check(64, stream_->Read(buffer, -64));
    EXPECT_EQ(1024, stream_->GetBulkSize());

    SoundTriggerDriverOperations orphan(nullptr, 10, 2, true);
    Check(-ENODEV, orphan.Read(buffer, 64));
    Check(false, orphan.GetPosition(frames, frames));
    Check(false, orphan.Start(), "", {"E DriverOperations: Start: There is no HAL to read from"});
    SoundTriggerDriverOperationsBuilder nowhere;
    nowhere.is_internal_force = true;
    Check(true, nowhere.Build() == nullptr, "",
          {"E DriverOperations: Build: There is no HAL to force a recognition"});
    EXPECT_EQ(-7, frames) << "touched";
}

TEST_F(StreamTest, InternalForcedStreamBeginsItsRecognitionWhenBuiltAndEndsItTwice) {
    log_.SetMinimum(::android::base::DEBUG);
    Fail("Internal");
    EXPECT_EQ(nullptr, Build(1, true));
    Forget();
    stream_ = Build(1, true);
    Check(true, stream_->Start(), "Start(1) Internal(0)");
    Check(true, stream_->Stop(), "Stop(1) Unload(1)");
    Check(false, stream_->Start(), "",
          {"E DriverOperations: Start: Can't find valid client by 10, is_internal_forced: true"});
    Build(1, true).reset();
    EXPECT_EQ("Start(1) Internal(0) Stop(1) Unload(1)", dsp_.TakeCommands());
    EXPECT_TRUE(log_.HasInOrder(
            {"D DriverOperations: Start: io_handle 10, with engine type: 1",
             "D DriverOperations: Stop: Stopped zero latency capture",
             "D DriverOperations: Stop: io_handle 10",
             "D DriverOperations: ~SoundTriggerDriverOperations: Stopped zero latency capture"}));
}

struct Halver : PcmProcessor {
    explicit Halver(PcmConfig* config_in) : config(config_in) {}
    bool SetUp(const PcmConfig& wanted) override { return *config = wanted, false; }
    int Process(unsigned char* buffer, int frames) override { return buffer[0] = 'p', frames / 2; }

    PcmConfig* const config;
};

TEST_F(StreamTest, ProcessorDecidesWhatIsDelivered) {
    PcmConfig config;
    Open(2);
    stream_->SetPcmProcessor(std::make_unique<Halver>(&config));
    stream_->SetUpPcmConfig();
    EXPECT_THAT(log_.TakeProblems(),
                ElementsAre("W DriverOperations: SetUpPcmConfig: set up pcm processor failed"));
    EXPECT_EQ(std::tuple(2, 16000, 1024, 2, true),
              std::tuple(config.channels, config.sample_rate, config.frames_per_period,
                         config.bytes_per_sample, config.is_interleaved));
    EXPECT_EQ((std::string{'p', 1, 2, 3}), Read(11)) << "two whole frames, of which one is left";
    EXPECT_EQ(
            "SoundTrigger operations:\n  Io handle: 10\n  Channel count: 2\n"
            "  Total transmit bytes: 1\n  Is internal force: 0\n",
            DumpOf(*stream_));
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
