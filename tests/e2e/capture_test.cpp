// Captured audio, frame by frame, while everything else goes on. The microphone plays a pattern in
// which every sample says where it belongs, so that no frame can be lost, duplicated, stale or
// swapped unnoticed.
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"
#include "host/common/mulaw_encoder.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/board/board_fixture.h"
#include "tests/support/model.h"
#include "tests/support/recording_callback.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using ::aidl::android::media::soundtrigger::RecognitionConfig;
using std::chrono::steady_clock;
using ::virtual_dsp::Engine;
using ::virtual_dsp::PatternSample;

// The stretch of the pattern that is the hotword, and when it comes again.
constexpr uint64_t kTemplateFirst = 16000;
constexpr uint64_t kTemplateFrames = 3200;
constexpr uint64_t kPrerollFrames = 8000;
constexpr size_t kPlayedFrames = 96000;

constexpr double kSpeed = 4;
constexpr int kHotwordIo = 13;
constexpr int kAmbientIo = 14;
constexpr int kBulkFrames = 1024;

int16_t Companded(int16_t sample) {
    const uint8_t code = ::virtual_dsp::EncodeMulaw(sample);
    int16_t expanded = 0;
    zyl::ExpandMulaw({&code, 1}, reinterpret_cast<char*>(&expanded));
    return expanded;
}

class CaptureTest : public ::virtual_dsp::BoardTest {
  protected:
    void SetUp() override {
        ::virtual_dsp::BoardOptions options;
        options.microphone.speed = kSpeed;
        auto board = ::virtual_dsp::Board::Create(options);
        ASSERT_TRUE(board.ok()) << board.error();
        board_ = std::move(*board);
        hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal();
        (void)hal_->Initialize();
        hal_->OnSoundCardStateChanged(true);
    }

    void TearDown() override {
        hal_.reset();
        board_.reset();
    }

    int Load(Engine engine, size_t bytes = 0, uint64_t template_first = kTemplateFirst) {
        const SoundModel model = ModelOf(
                engine == Engine::kHotword ? SoundModelType::KEYPHRASE : SoundModelType::GENERIC,
                std::to_string(++models_),
                ::virtual_dsp::BuildSoundModel(
                        {engine, 0.7F,
                         ::virtual_dsp::PatternChannel(template_first, kTemplateFrames, 0)},
                        bytes));
        int handle = -1;
        EXPECT_EQ(0, hal_->LoadSoundModel(model, callback_, &handle));
        return handle;
    }

    int LoadAndStart(Engine engine, int io_handle) {
        const int handle = Load(engine);
        EXPECT_EQ(0, hal_->StartRecognition(handle, 0, io_handle, RecognitionConfig{}));
        return handle;
    }

    void Play(uint64_t first = 0, size_t frames = kPlayedFrames) {
        (void)board_->microphone().Play(::virtual_dsp::PatternFrames(first, frames));
    }

    std::unique_ptr<SoundTriggerDriverOperations> Open(int io_handle, int channels) {
        SoundTriggerDriverOperationsBuilder builder;
        builder.hal = hal_.get();
        builder.io_handle = io_handle;
        builder.channel_count = channels;
        auto stream = builder.Build();
        EXPECT_TRUE(stream->Start());
        return stream;
    }

    static std::vector<int16_t> ReadBulk(SoundTriggerDriverOperations& stream, int channels) {
        std::vector<int16_t> bulk(static_cast<size_t>(kBulkFrames * channels));
        const int bytes = static_cast<int>(bulk.size() * sizeof(int16_t));
        EXPECT_EQ(bytes, stream.Read(reinterpret_cast<unsigned char*>(bulk.data()), bytes));
        return bulk;
    }

    static std::vector<int16_t> ReadBulks(SoundTriggerDriverOperations& stream, int channels,
                                          int count) {
        std::vector<int16_t> audio;
        for (int i = 0; i < count; ++i) {
            const std::vector<int16_t> bulk = ReadBulk(stream, channels);
            audio.insert(audio.end(), bulk.begin(), bulk.end());
        }
        return audio;
    }

    // Follows `audio` through the pattern from where its first samples belong; returns the frame
    // after its last one.
    static uint64_t ExpectPattern(std::span<const int16_t> audio, int channels,
                                  const std::function<int16_t(int16_t)>& coded,
                                  uint64_t* first_frame = nullptr) {
        constexpr size_t kWindow = 8;
        std::vector<int16_t> window;
        for (size_t i = 0; i < kWindow; ++i) window.push_back(audio[i * size_t(channels)]);
        const auto first = ::virtual_dsp::FindPattern(window, 0, 0, 2 * kPlayedFrames, coded);
        if (!first) {
            ADD_FAILURE() << "the capture begins with audio that nobody played";
            return 0;
        }
        if (first_frame != nullptr) *first_frame = *first;
        for (size_t i = 0; i < audio.size(); ++i) {
            const uint64_t frame = *first + i / size_t(channels);
            const int channel = static_cast<int>(i % size_t(channels));
            if (audio[i] != coded(PatternSample(frame, channel))) {
                ADD_FAILURE() << "frame " << i / size_t(channels) << " of the capture, channel "
                              << channel << ", is not the microphone's frame " << frame;
                return 0;
            }
        }
        return *first + audio.size() / size_t(channels);
    }

    static int16_t Plain(int16_t sample) { return sample; }

    std::shared_ptr<RecordingCallback> callback_ = ndk::SharedRefBase::make<RecordingCallback>();
    std::unique_ptr<SoundTriggerHal> hal_;
    int models_ = 0;
};

// What the rest of the phone does meanwhile: everything that takes the HAL's lock, for long.
class Disturbance {
  public:
    explicit Disturbance(std::function<void()> work)
        : thread_([this, work = std::move(work)] {
              while (!stop_) {
                  work();
                  ++rounds_;
              }
          }) {}
    // How often the work was done.
    int Stop() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        return rounds_;
    }
    ~Disturbance() { (void)Stop(); }

  private:
    std::atomic<bool> stop_{false};
    std::atomic<int> rounds_{0};
    std::thread thread_;
};

struct Kind {
    Engine engine;
    int channels;
};

class CaptureOfEachKindTest : public CaptureTest, public ::testing::WithParamInterface<Kind> {};

TEST_P(CaptureOfEachKindTest, StaysWholeWhileModelsLoadDumpsRunAndThePhoneIsDocked) {
    const auto [engine, channels] = GetParam();
    const bool is_ambient = engine == Engine::kAmbientMusic;
    const Engine other = is_ambient ? Engine::kHotword : Engine::kAmbientMusic;
    (void)LoadAndStart(engine, kHotwordIo);
    Play();
    ASSERT_TRUE(callback_->WaitForEvents(1));
    const auto stream = Open(kHotwordIo, channels);

    constexpr size_t kBigModel = 16 * 1024 * 1024;
    Disturbance loading([&] {
        // Another template: it must not detect, only load.
        const int handle = Load(other, kBigModel, 2 * kPlayedFrames);
        EXPECT_EQ(0, hal_->UnloadSoundModel(handle));
    });
    Disturbance dumping([&] {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        hal_->Dump(utils::dumpsys::DumpsysInfo(null));
        close(null);
        std::this_thread::yield();
    });
    bool docked = false;
    // Now and then: the microphone is a thread of this process, too, and has to get a turn in time.
    Disturbance docking([&] {
        hal_->OnDockChargerConnected(docked = !docked);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });

    const std::vector<int16_t> audio = ReadBulks(*stream, channels, 60);

    EXPECT_GT(docking.Stop(), 0);
    EXPECT_GT(dumping.Stop(), 0);
    EXPECT_GT(loading.Stop(), 0);
    uint64_t first = 0;
    (void)ExpectPattern(audio, channels, is_ambient ? Companded : Plain, &first);
    EXPECT_EQ(kTemplateFirst - kPrerollFrames, first) << "the audio before the hotword is missing";
}

INSTANTIATE_TEST_SUITE_P(Kinds, CaptureOfEachKindTest,
                         ::testing::Values(Kind{Engine::kHotword, 2}, Kind{Engine::kHotword, 1},
                                           Kind{Engine::kAmbientMusic, 1}),
                         [](const auto& test) {
                             return std::string(test.param.engine == Engine::kHotword ? "Hotword"
                                                                                      : "Ambient") +
                                    std::to_string(test.param.channels) + "Channel";
                         });

TEST_F(CaptureTest, TwoEnginesAreCapturedAtOnceAndTheirAudioDoesNotMix) {
    (void)LoadAndStart(Engine::kHotword, kHotwordIo);
    (void)LoadAndStart(Engine::kAmbientMusic, kAmbientIo);
    Play();
    ASSERT_TRUE(callback_->WaitForEvents(2));
    const auto hotword = Open(kHotwordIo, 2);
    const auto ambient = Open(kAmbientIo, 1);

    std::vector<int16_t> ambient_audio;
    std::thread reader([&] { ambient_audio = ReadBulks(*ambient, 1, 40); });
    const std::vector<int16_t> hotword_audio = ReadBulks(*hotword, 2, 40);
    reader.join();

    (void)ExpectPattern(hotword_audio, 2, Plain);
    (void)ExpectPattern(ambient_audio, 1, Companded);
}

TEST_F(CaptureTest, FailedReadsBecomeSilenceAndNoFrameIsLostOverThem) {
    (void)LoadAndStart(Engine::kHotword, kHotwordIo);
    Play();
    ASSERT_TRUE(callback_->WaitForEvents(1));
    const auto stream = Open(kHotwordIo, 2);
    const std::vector<int16_t> before = ReadBulks(*stream, 2, 2);

    AddFault("on hotword_pcm read times=2 errno=EIO");
    const auto started = steady_clock::now();
    const std::vector<int16_t> silence = ReadBulks(*stream, 2, 2);
    EXPECT_GE(steady_clock::now() - started, std::chrono::milliseconds(128))
            << "silence came faster than audio would";
    const std::vector<int16_t> after = ReadBulks(*stream, 2, 10);

    EXPECT_EQ(std::set<int16_t>{0}, std::set<int16_t>(silence.begin(), silence.end()));
    const uint64_t end = ExpectPattern(before, 2, Plain);
    uint64_t first_after = 0;
    (void)ExpectPattern(after, 2, Plain, &first_after);
    EXPECT_EQ(end, first_after);
}

TEST_F(CaptureTest, StreamRunsOnSilenceWhileTheDspIsGoneAndHasAudioAgainAfterTheNextHotword) {
    (void)LoadAndStart(Engine::kHotword, kHotwordIo);
    Play(0, kTemplateFirst + kTemplateFrames + kPrerollFrames);
    ASSERT_TRUE(callback_->WaitForEvents(1));
    const auto stream = Open(kHotwordIo, 2);
    (void)ExpectPattern(ReadBulk(*stream, 2), 2, Plain);

    board_->dsp().Crash();
    hal_->OnSoundCardStateChanged(false);
    const auto started = steady_clock::now();
    const std::vector<int16_t> silence = ReadBulks(*stream, 2, 3);
    EXPECT_GE(steady_clock::now() - started, std::chrono::milliseconds(3 * 64));
    EXPECT_EQ(std::set<int16_t>{0}, std::set<int16_t>(silence.begin(), silence.end()));

    board_->dsp().Boot();
    hal_->OnSoundCardStateChanged(true);
    Play();
    ASSERT_TRUE(callback_->WaitForEvents(2));
    const auto next = Open(kHotwordIo, 2);
    uint64_t first = 0;
    (void)ExpectPattern(ReadBulks(*next, 2, 20), 2, Plain, &first);
    EXPECT_EQ(kTemplateFirst - kPrerollFrames, first);
}

}  // namespace

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
