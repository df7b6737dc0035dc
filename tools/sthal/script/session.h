#pragma once

#include <aidl/android/media/soundtrigger/RecognitionConfig.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "host/virtual_dsp/nodes/faults.h"
#include "tools/audio/sound.h"
#include "tools/sthal/output/progress.h"
#include "tools/sthal/output/run_files.h"
#include "tools/sthal/output/terminal.h"
#include "tools/sthal/phone/capture_job.h"
#include "tools/sthal/phone/phone.h"

namespace sthal {

struct SessionOptions {
    double speed = 1.0;
    uint32_t seed = 1;                     // Of the noise in the room and of the faults.
    std::string output_folder = ".";       // Which exists.
    std::string title{};                   // Of the run's files; empty: none will be written.
    std::function<bool()> is_interrupted;  // Asked while something is waited for.
};

// How a verb ended.
struct Outcome {
    enum class Kind { kDone, kFailed, kInterrupted };
    Kind kind = Kind::kDone;
    std::string text{};  // Of a failure: what was expected and what was seen.

    bool ok() const { return kind == Kind::kDone; }
    static Outcome Failed(std::string text) { return {Kind::kFailed, std::move(text)}; }
    static Outcome Expected(const std::string& what, const std::string& seen) {
        return Failed("expected " + what + "; saw " + seen);
    }
};

/**
 * A phone that verbs are carried out on, with the models, recordings and captures that they name.
 *
 * Times are the room's: one second is what the microphones hear in a second, however fast they are
 * played to. So a sequence of verbs means the same at every speed. Used by one thread.
 */
class Session {
  public:
    struct Model {
        int handle = 0;
        bool is_generic = false;
        int io_handle = 0;
        audio::Sound pattern{};
    };
    struct LoadRequest {
        bool is_generic = false;
        std::string name;
        audio::Sound pattern;
        double threshold = 0;
        size_t total_bytes = 0;
    };

    // Boots a phone whose DSP is online. Must run on the board.
    static audio::Result<std::unique_ptr<Session>> Begin(const SessionOptions& options,
                                                         Terminal& terminal);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Ends the phone, which no other operation may follow, and writes the run's files. Returns what
    // is wrong with them, or nothing.
    std::string End(const std::string& verdict, const RunFiles& files);

    Phone& phone() { return *phone_; }
    Terminal& terminal() { return terminal_; }
    const SessionOptions& options() const { return options_; }
    // Another one for each recording that is made, by the seed of the session.
    uint64_t NextSeed() { return options_.seed + recordings_++; }
    void Say(const std::string& text) { timeline_.Line(Lane::kTool, text); }
    void Show(const std::string& text) { timeline_.Block(text); }

    // --- models ---
    const std::map<std::string, Model>& models() const { return models_; }
    // By name or by handle; null when there is none.
    Model* FindModel(const std::string& name);
    Outcome Load(const LoadRequest& request);
    Outcome Unload(const std::string& name);
    Outcome ReadProperties() { return Returned(phone_->ReadProperties()); }
    Outcome Start(const std::string& name,
                  const ::aidl::android::media::soundtrigger::RecognitionConfig& config,
                  int io_handle);
    // Calls the phone with the handle of a model.
    Outcome Call(const std::string& name, bool (Phone::*call)(int handle));

    // The result of the latest call that returned one other than 0, once: whoever expects it takes
    // it, and whoever goes on without finds it.
    std::optional<int> TakeFailedResult();
    // Of the latest call of the HAL, or none so far.
    std::optional<int> last_result() const { return last_result_; }

    // --- the room ---
    // Plays a recording after those that are still playing.
    Outcome Play(const audio::Sound& recording);
    // What was played last, or null.
    const Playback* playback() const { return playback_.get(); }
    // Waits until `done`, for `seconds` in the room and then a second by the clock on the wall for
    // what is on its way; or, `exactly`, for no longer than that. False when it did not come, or on
    // an interrupt.
    bool WaitUntil(const std::function<bool()>& done, double seconds, bool exactly = false);
    bool IsInterrupted() const { return options_.is_interrupted && options_.is_interrupted(); }
    Outcome NotInTime(const std::string& what, const std::string& seen) const;

    // --- events ---
    // Takes the oldest event that nobody has taken yet, of one model or of any.
    std::optional<FrameworkEvent> TakeEvent(std::optional<int> handle);
    const std::optional<FrameworkEvent>& last_event() const { return last_event_; }
    // Those not taken, one after another, or "no event".
    std::string DescribeEvents();

    // --- captures ---
    Outcome StartCapture(const CaptureOptions& options, double seconds, const std::string& file);
    Outcome StopCapture();
    // The latest, running or not; null before the first.
    CaptureJob* capture() { return capture_.get(); }

    // --- around the HAL ---
    // The audio service, and with it the HAL, starts anew: all models are gone.
    Outcome RestartService();
    Outcome AddFault(const std::string& text);
    void ClearFaults();
    std::optional<size_t> last_fault() const { return last_fault_; }
    void Route(const std::string& usecase, const std::string& device);
    bool HasLogged(const std::string& text);
    void ForgetLog();

  private:
    Session(const SessionOptions& options, Terminal& terminal);
    Outcome Returned(bool succeeded);
    void LetGoWhenInterrupted(const std::stop_token& stop);

    const SessionOptions options_;
    Terminal& terminal_;
    Progress progress_{terminal_};
    Timeline timeline_;
    std::mutex log_lock_;
    std::deque<std::string> log_;  // Under log_lock_; the latest lines.

    std::map<std::string, Model> models_;
    std::map<std::string, std::string> routes_;
    std::deque<FrameworkEvent> events_;
    std::optional<FrameworkEvent> last_event_;
    std::optional<size_t> last_fault_;
    std::optional<int> failed_result_;
    std::optional<int> last_result_;
    uint64_t recordings_ = 0;
    std::shared_ptr<Playback> playback_;
    std::unique_ptr<Phone> phone_;
    std::unique_ptr<CaptureJob> capture_;  // After the phone: it ends first.
    std::jthread let_go_;                  // Last: it uses the phone.
};

}  // namespace sthal
