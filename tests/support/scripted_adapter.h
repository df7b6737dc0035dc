#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * A DSP that a test scripts and watches. Every call succeeds unless a step says otherwise. The
 * journal keeps each call as a short text, given at the functions below. The notification
 * descriptor is a real one, readable while notifications wait, so that the HAL's own select loop
 * runs.
 *
 * Fails the test when a step or a notification is left over at the end, when a forbidden call
 * comes, when a notification is read although none waits, and when two calls overlap that the HAL
 * has to make under its lock. Thread-safe.
 */
class ScriptedAdapter : public SoundTriggerAdapter {
  public:
    static constexpr int kNever = -1;

    // What a call does other than return 0: a fault, or an action during the call.
    struct Step {
        std::string call;  // How its text begins.
        int result = 0;    // 0: as without this step.
        int after = 0;     // This many such calls pass first.
        int times = 1;     // Then it applies to this many. kNever: no such call may come.
        std::function<void()> during = nullptr;  // Run inside the call.
    };
    // A record for the notification device or, with a result, a read that fails.
    struct Notification {
        int engine = 0;
        std::optional<std::string> payload = std::nullopt;  // None: a record without text.
        int result = 0;
        bool is_torn = false;  // The engine is not written, and the result is 0.
    };

    ~ScriptedAdapter() override;
    void Script(Step step);
    void Notify(Notification notification);

    // Removes and returns calls of the journal: all, or those that change the DSP, in one line.
    std::vector<std::string> Take();
    std::string TakeCommands();
    // Waits for calls in the journal whose text begins with `call`.
    void WaitForCall(const std::string& call, size_t count = 1);

    // Answers of the queries; the first one is set before the HAL asks.
    LibraryArchitecture library{.library_version = 7, .architecture = "arm"};
    std::atomic<int64_t> timestamp_ns{-1};

    // "Load(engine,size,first bytes)"
    int LoadSoundModelToDsp(int engine, int size, const char* data) override;
    int StartDetectionInDsp(int engine) override { return ForEngine("Start", engine); }
    int StopDetectionInDsp(int engine) override { return ForEngine("Stop", engine); }
    int UnloadSoundModelFromDsp(int engine) override { return ForEngine("Unload", engine); }
    int TriggerForceRecognition(int engine) override { return ForEngine("Force", engine); }
    int SetupEraserInDsp(bool on) override { return Switch("Eraser", on); }
    int SetupApProcessWithDock(bool on) override { return Switch("ApProcess", on); }
    int SetupMicSwapInDsp(bool on) override { return Switch("MicSwap", on); }
    int SetupReferenceSource(bool on) override { return Switch("Reference", on); }
    int SetupNeuralAecInDsp(bool on) override { return Switch("NeuralAec", on); }
    int SendTuningToDsp(int type) override { return Locked("Tuning", std::to_string(type)); }
    int InternalHotwordRecognition(unsigned value) override {
        return Locked("Internal", std::to_string(value));
    }
    // Not commands: "Library()", "Timestamp(engine)", "Read(engine,size,channels)", and the control
    // thread's "Watch()", "Unwatch()" and "Notification()".
    std::optional<LibraryArchitecture> GetLibraryArchitecture() override;
    int64_t ReadDspTimestamp(int engine) override;
    // Writes as much as the real adapter: where audio is converted, always 1024 samples. Byte k of
    // each read is k, modulo 251.
    int ReadDspBuffer(int engine, char* buffer, unsigned size, int channels) override;
    int GetNotificationFileDescriptor() override;
    void ResetNotificationFileDescriptor() override;
    int ReadDspNotification(int* engine, std::string& payload) override;

  private:
    // Adds a call to the journal and returns what its step says, else 0. The other three are for
    // calls that the HAL makes under its lock.
    int Call(const std::string& name, const std::string& arguments);
    int Locked(const char* name, const std::string& arguments = "");
    int ForEngine(const char* name, int engine, const std::string& more = "");
    int Switch(const char* name, bool on) { return Locked(name, on ? "on" : "off"); }

    std::mutex lock_;
    std::condition_variable journal_changed_;
    std::vector<std::string> journal_;
    std::deque<Step> steps_;
    std::deque<Notification> notifications_;
    int notification_fd_ = -1;
    std::atomic<int> calls_under_hal_lock_{0};
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
