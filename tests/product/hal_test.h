#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "tests/support/deadline.h"
#include "tests/support/log_capture.h"
#include "tests/support/model.h"
#include "tests/support/recording_callback.h"
#include "tests/support/scripted_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using enum ::aidl::android::media::soundtrigger::SoundModelType;

inline constexpr int kHotword = 1;
inline constexpr int kAmbient = 2;

/**
 * Access to functions that have no caller in the library, and to data that no caller can see. Holds
 * the HAL's lock.
 */
class SoundTriggerHalPeer {
  public:
    explicit SoundTriggerHalPeer(SoundTriggerHal& hal) : hal_(hal), lock_(hal.lock_) {}
    int ResetDsp() { return hal_.ResetDsp(); }
    int ResetModelInDsp(int engine) { return hal_.ResetModelInDsp(engine); }
    // The bytes in the pipe that the control thread has not read yet.
    int PendingMessageBytes() {
        int bytes = -1;
        EXPECT_EQ(0, ioctl(hal_.control_pipe_.read_end(), FIONREAD, &bytes));
        return bytes;
    }

  private:
    SoundTriggerHal& hal_;
    const std::lock_guard<std::mutex> lock_;
};

/** What `dumped` writes for these arguments. */
template <typename T>
std::string DumpOf(T& dumped, std::vector<std::string_view> args = {}, int indentation = 0) {
    const ::ndk::ScopedFileDescriptor file = MemoryFile();
    utils::dumpsys::DumpsysInfo info(file.get());
    info.args = std::move(args);
    info.indentation = indentation;
    dumped.Dump(info);
    return TextOf(file);
}

inline std::vector<pid_t> ControlThreads() {
    std::vector<pid_t> threads;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        if (name == "SthalControl") threads.push_back(std::stoi(thread.path().filename()));
    }
    return threads;
}

/** A HAL on a scripted DSP, built but not initialised. */
class HalTest : public ::testing::Test {
  protected:
    void TearDown() override { leave_.release(); }

    // Checks the result of an operation, all that it sent to the DSP, and every line above INFO.
    void Check(int expected, int result, const std::string& commands = "",
               const LogCapture::Lines& problems = {}, int line = __builtin_LINE()) {
        const ::testing::ScopedTrace trace("", line, "the step in this line");
        EXPECT_EQ(expected, result);
        EXPECT_EQ(commands, dsp_.TakeCommands());
        EXPECT_EQ(problems, log_.TakeProblems());
    }
    void Forget() {
        (void)dsp_.Take();
        (void)log_.Take();
    }

    void Fail(const char* call) { dsp_.Script({.call = call, .result = -EIO}); }
    void Online(bool online) { hal_->OnSoundCardStateChanged(online); }
    // From now on every started hotword model wants the eraser.
    void PlayOnLoudspeaker() {
        hal_->OnRoutingGraphChanged({.edges = {{"deep-buffer-playback", "speaker"}}});
        (void)dsp_.TakeCommands();
    }

    int TryLoad(const SoundTriggerHal::SoundModel& model) {
        handle_ = -77;
        return hal_->LoadSoundModel(model, callback_, &handle_);
    }
    // Loads a model unlike the others and returns its handle.
    int Load(SoundTriggerHalClient::SoundModelType type) {
        EXPECT_EQ(0, TryLoad(ModelOf(type, "vendor uuid " + std::to_string(++models_made_))));
        Forget();
        return handle_;
    }
    // The same, with recognition started.
    int Start(SoundTriggerHalClient::SoundModelType type, int io_handle,
              const SoundTriggerHal::RecognitionConfig& config = {}) {
        const int handle = Load(type);
        EXPECT_EQ(0, hal_->StartRecognition(handle, 0, io_handle, config));
        (void)dsp_.TakeCommands();
        return handle;
    }
    // Makes the DSP report a detection, and waits until the framework has got the event.
    void Detect(int engine, const std::string& payload = "payload") {
        const size_t events = callback_->events().size();
        dsp_.Notify({.engine = engine, .payload = payload});
        EXPECT_TRUE(callback_->WaitForEvents(events + 1)) << "no event";
    }
    // Keeps the control thread in a callback, for an ambient model with handle 1, until `leave_` is
    // released.
    void Hold() {
        std::counting_semaphore<> entered{0};
        callback_->SetAction([&](int) {
            entered.release();
            EXPECT_TRUE(leave_.try_acquire_for(kDeadline)) << "not released";
        });
        (void)Start(GENERIC, 10);
        dsp_.Notify({.engine = kAmbient});
        EXPECT_TRUE(entered.try_acquire_for(kDeadline)) << "no callback";
        callback_->SetAction(nullptr);
        Forget();
    }

    // A field of one client in the dump; "" without such a client.
    std::string Field(int handle, const std::string& label) {
        const std::string dump = DumpOf(*hal_);
        const size_t client = dump.find("  Client: " + std::to_string(handle) + "\n");
        if (client == std::string::npos) return "";
        const size_t value = dump.find(label + ": ", client) + label.size() + 2;
        return dump.substr(value, dump.find('\n', value) - value);
    }
    std::string State(int handle) { return Field(handle, "Runtime state"); }

    LogCapture log_;
    std::counting_semaphore<> leave_{0};
    ScriptedAdapter& dsp_ = *new ScriptedAdapter;  // The HAL's.
    const std::shared_ptr<RecordingCallback> callback_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    std::unique_ptr<SoundTriggerHal> hal_ =
            SoundTriggerHalBuilder::BuildSoundTriggerHal(std::unique_ptr<ScriptedAdapter>(&dsp_));
    int handle_ = 0;  // From the last load.
    int models_made_ = 0;
};

/** The same, but initialised, with the DSP online and the control thread waiting. */
class RunningHalTest : public HalTest {
  protected:
    void SetUp() override {
        (void)hal_->Initialize();
        dsp_.WaitForCall("Unwatch");
        Online(true);
        dsp_.WaitForCall("Unwatch", 2);
        Forget();
    }
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
