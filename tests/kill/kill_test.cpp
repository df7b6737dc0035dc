// The DSP is another process here, and is killed in the middle of everything. The library survives,
// no call takes long, and the reports of the sound card are all that it needs to go on.
#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/kill/dsp_process.h"
#include "tests/support/recording_callback.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using ::aidl::android::media::soundtrigger::SoundModelType;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::virtual_dsp::DspProcess;

constexpr int kIoHandle = 7;
constexpr uint64_t kFirst = 12000;
constexpr uint64_t kFrames = 1600;
/**
 * Counts beats of 10 ms beside the calls, the time that this machine has to give: where other
 * programs hold up a call, they hold up the beats.
 */
class Beats {
  public:
    ~Beats() {
        stop_ = true;
        thread_.join();
    }
    int count() const { return count_; }

  private:
    std::atomic<bool> stop_ = false;
    std::atomic<int> count_ = 0;
    std::thread thread_{[this] {
        while (!stop_) {
            (void)poll(nullptr, 0, 10);
            ++count_;
        }
    }};
};

// In beats: 1 s, which the public header promises of every call.
constexpr int kLimit = 100;
// A read of audio that fails: 128 ms of waiting at most and 64 ms of silence; half as much again.
constexpr int kReadLimit = 29;

// When the control thread told of detections that it could not read.
class FailedReads {
  public:
    static void Count(::android::base::LogId, ::android::base::LogSeverity, const char*,
                      const char*, unsigned, const char* text) {
        if (strstr(text, "read trigger event failure") == nullptr) return;
        FailedReads& self = Get();
        std::lock_guard lock(self.lock_);
        self.times_.push_back(steady_clock::now());
        self.grown_.notify_all();
    }
    static FailedReads& Get() {
        static FailedReads instance;
        return instance;
    }

    // The times of the next `count`.
    std::vector<steady_clock::time_point> Await(size_t count) {
        std::unique_lock lock(lock_);
        times_.clear();
        EXPECT_TRUE(grown_.wait_for(lock, std::chrono::seconds(60),
                                    [&] { return times_.size() >= count; }));
        return times_;
    }

  private:
    std::mutex lock_;
    std::condition_variable grown_;
    std::vector<steady_clock::time_point> times_;
};

class KillTest : public ::testing::Test {
  protected:
    // Makes a call, which must not take more than `limit` beats.
    template <typename Call>
    auto Timed(Call call, int limit = kLimit) {
        struct Judge {
            ~Judge() { EXPECT_LE(beats.count() - began, limit) << "a call took too long"; }
            const Beats& beats;
            const int began;
            const int limit;
        } judge{beats_, beats_.count(), limit};
        return call();
    }

    void SetUp() override {
        ::android::base::SetLogger(FailedReads::Count);
        mounts_before_ = ::virtual_dsp::MountCount();
        dsp_ = std::make_unique<DspProcess>();
        ASSERT_NO_FATAL_FAILURE(dsp_->Start());
        const auto model =
                ::virtual_dsp::BuildSoundModel({::virtual_dsp::Engine::kHotword, 0.7F,
                                                ::virtual_dsp::PatternChannel(kFirst, kFrames, 0)},
                                               100'000);
        model_.assign(model.begin(), model.end());
        hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal();
        EXPECT_TRUE(hal_->Initialize());
        hal_->OnSoundCardStateChanged(true);
    }

    void TearDown() override {
        Timed([&] { hal_.reset(); });
        dsp_.reset();
        EXPECT_EQ(mounts_before_, ::virtual_dsp::MountCount()) << "a mount was left behind";
        ::android::base::SetLogger(::android::base::StderrLogger);
    }

    int Load() {
        SoundTriggerHal::SoundModel model;
        model.type = SoundModelType::KEYPHRASE;
        model.data.set(memfd_create("model", MFD_CLOEXEC));
        EXPECT_EQ(static_cast<ssize_t>(model_.size()),
                  pwrite(model.data.get(), model_.data(), model_.size(), 0));
        model.dataSize = static_cast<int32_t>(model_.size());
        return Timed([&] { return hal_->LoadSoundModel(model, callback_, &handle_); });
    }
    int Start() {
        return Timed([&] { return hal_->StartRecognition(handle_, 0, kIoHandle, {}); });
    }
    int Stop() {
        return Timed([&] { return hal_->StopRecognition(handle_); });
    }
    int Unload() {
        return Timed([&] { return hal_->UnloadSoundModel(handle_); });
    }
    void Report(bool online) {
        Timed([&] { hal_->OnSoundCardStateChanged(online); });
        CountReport();
    }
    void CountReport() {
        ++reports_;
        reports_.notify_all();
    }
    int Read() {
        std::vector<char> audio(4096);
        return Timed([&] { return hal_->ReadBuffer(1, audio.data(), 4096, 2); }, kReadLimit);
    }

    void Restart() {
        Report(false);
        ASSERT_NO_FATAL_FAILURE(dsp_->Start());
        Report(true);
    }

    // Somebody says the hotword, and the framework hears of it.
    void ExpectDetection() {
        const size_t events = callback_->events().size();
        dsp_->Ask("play pattern " + std::to_string(kFirst) + " " + std::to_string(kFrames + 640));
        EXPECT_TRUE(callback_->WaitForEvents(events + 1));
    }

    // Kills the DSP when `fault` has struck inside `call`; returns what the call came to.
    template <typename Call>
    int KillInside(const std::string& fault, Call call) {
        dsp_->Ask("fault " + fault);
        auto result = std::async(std::launch::async, call);
        dsp_->Ask("wait fault");
        dsp_->Kill();
        return result.get();
    }

    // Loads, starts, reads, stops and unloads until it is told to stop. After a call that failed it
    // waits for the next report, as a framework does that is told when it is worth another attempt.
    void Work() {
        while (!stop_working_) {
            const int reports = reports_;
            const auto failed = [&](int result) {
                if (result == 0) return false;
                ++failures_;
                failures_.notify_all();
                if (!stop_working_) reports_.wait(reports);
                return true;
            };
            if (failed(Load())) continue;
            (void)Start();
            (void)Read();
            (void)Stop();
            while (failed(Unload()) && !stop_working_) {
            }
        }
    }

    size_t mounts_before_ = 0;
    std::unique_ptr<DspProcess> dsp_;
    std::string model_;
    std::unique_ptr<SoundTriggerHal> hal_;
    const std::shared_ptr<RecordingCallback> callback_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    int handle_ = -1;
    Beats beats_;
    std::atomic<int> reports_ = 0;
    std::atomic<int> failures_ = 0;  // Of Work().
    std::atomic<bool> stop_working_ = false;
};

TEST_F(KillTest, InTheMiddleOfADownload) {
    for (const char* fault :
         {"model_data write after=3 times=1 hang", "command reply id=260 after=2 times=1 hang"}) {
        EXPECT_EQ(-EINVAL, KillInside(fault, [&] { return Load(); })) << fault;
        ASSERT_NO_FATAL_FAILURE(Restart());
    }
    EXPECT_EQ(0, Load());
    EXPECT_EQ(1, handle_) << "failed loads must leave nothing behind";
    EXPECT_EQ(0, Start());
    ExpectDetection();
}

TEST_F(KillTest, InTheMiddleOfTheDownloadAfterARestart) {
    ASSERT_EQ(0, Load());
    ASSERT_EQ(0, Start());
    dsp_->Kill();
    Report(false);
    ASSERT_NO_FATAL_FAILURE(dsp_->Start());
    KillInside("model_data write after=3 times=1 hang", [&] { return Report(true), 0; });

    ASSERT_NO_FATAL_FAILURE(Restart());

    ExpectDetection();
}

TEST_F(KillTest, InTheMiddleOfACommand) {
    ASSERT_EQ(0, Load());
    for (const char* fault : {"command open times=1 hang", "command write times=1 hang",
                              "command read times=1 hang", "command reply times=1 hang"}) {
        EXPECT_EQ(-EINVAL, KillInside(fault, [&] { return Start(); })) << fault;
        ASSERT_NO_FATAL_FAILURE(Restart());
    }
    EXPECT_EQ(0, Start());
    EXPECT_EQ(-EINVAL, KillInside("command reply id=228 hang", [&] { return Stop(); }));
    ASSERT_NO_FATAL_FAILURE(Restart());
    ExpectDetection();
    EXPECT_EQ(0, Stop());
    EXPECT_EQ(-EINVAL, KillInside("command reply id=262 hang", [&] { return Unload(); }));
    ASSERT_NO_FATAL_FAILURE(Restart());
    EXPECT_EQ(0, Unload());
}

TEST_F(KillTest, InTheMiddleOfABufferRead) {
    ASSERT_EQ(0, Load());
    for (const char* fault : {"hotword_pcm open times=1 hang", "hotword_pcm poll hang",
                              "hotword_pcm read times=1 hang", "command reply id=354 hang"}) {
        SCOPED_TRACE(fault);
        ASSERT_EQ(0, Start());
        ExpectDetection();
        ASSERT_EQ(1, hal_->StartBufferingByIoHandle(kIoHandle, false));
        EXPECT_EQ(4096, KillInside(fault, [&] { return Read(); }));
        EXPECT_EQ(4096, Read()) << "not reported yet: silence";
        Report(false);
        EXPECT_EQ(-ENODEV, Read());
        ASSERT_NO_FATAL_FAILURE(dsp_->Start());
        Report(true);
        ExpectDetection();
        EXPECT_EQ(1, hal_->StartBufferingByIoHandle(kIoHandle, false));
        EXPECT_EQ(4096, Read());
    }
}

TEST_F(KillTest, InTheMiddleOfASelect) {
    ASSERT_EQ(0, Load());
    ASSERT_EQ(0, Start());
    ExpectDetection();
    ASSERT_EQ(0, Start());

    dsp_->Kill();  // The control thread is waiting for the next detection.
    const auto reads = FailedReads::Get().Await(4);  // Reports of a crash take their time.

    EXPECT_GE(reads[3] - reads[0], milliseconds(300))
            << "the control thread spins until the crash is reported";
    ASSERT_NO_FATAL_FAILURE(Restart());
    ExpectDetection();
}

TEST_F(KillTest, ReportedOnlyWhenItIsBackAlready) {
    ASSERT_EQ(0, Load());
    ASSERT_EQ(0, Start());
    for (int i = 0; i < 5; ++i) {
        dsp_->Kill();
        ASSERT_NO_FATAL_FAILURE(dsp_->Start());
        // Both at once, so that the control thread may see only what they come to.
        Report(false);
        Report(true);
        ExpectDetection();
        EXPECT_EQ(0, Start());
    }
}

TEST_F(KillTest, RequestsToADspThatIsGoneAndNotReported) {
    ASSERT_EQ(0, Load());
    ASSERT_EQ(0, Start());
    dsp_->Kill();

    SoundTriggerHal::Properties properties;
    EXPECT_EQ(-EINVAL, Timed([&] { return hal_->GetProperties(&properties); }));
    EXPECT_NE(0, Timed([&] { return hal_->ForceRecognitionEvent(handle_); }));
    EXPECT_EQ(-EINVAL, Stop());
    EXPECT_EQ(-EINVAL, Unload());
    Timed([&] { hal_->OnDockChargerConnected(true); });
    EXPECT_EQ(-EINVAL, Timed([&] { return hal_->InternalForceRecognition(); }))
            << "which drops the model";

    ASSERT_NO_FATAL_FAILURE(Restart());
    EXPECT_EQ(0, Load());
    EXPECT_EQ(0, Start());
    ExpectDetection();
}

TEST_F(KillTest, AtAnyMomentWhileTheFrameworkWorks) {
    for (int round = 0; round < 12; ++round) {
        stop_working_ = false;
        const int failures = failures_;
        dsp_->Ask("fault command write after=" + std::to_string(3 * round) + " times=1 delay=1");
        auto framework = std::async(std::launch::async, [this] { Work(); });
        dsp_->Ask("wait fault");
        dsp_->Kill();
        failures_.wait(failures);
        Restart();
        stop_working_ = true;
        CountReport();  // Ends a wait for one.
        framework.get();
        ASSERT_FALSE(HasFailure()) << "round " << round;
        (void)Stop();
        (void)Unload();
    }
    EXPECT_EQ(0, Load());
    EXPECT_EQ(1, handle_);
    EXPECT_EQ(0, Start());
    ExpectDetection();
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
