#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/common/result.h"
#include "host/virtual_dsp/board/board.h"
#include "tools/audio/sound.h"
#include "tools/sthal/facts/run_record.h"
#include "tools/sthal/findings/verdict.h"
#include "tools/sthal/output/progress.h"
#include "tools/sthal/output/run_files.h"
#include "tools/sthal/output/terminal.h"
#include "tools/sthal/output/timeline.h"
#include "tools/sthal/phone/capture_reader.h"
#include "tools/sthal/phone/phone.h"
#include "tools/sthal/script/fault_lifter.h"
#include "tools/sthal/script/recent_log.h"
#include "tools/sthal/script/recording.h"

namespace sthal {

// What a verb needs of a phone: bits.
enum class PhoneParts : unsigned {
    kNone = 0,
    kRoom = 1,  // Every phone has microphones, and a room around it.
    kBoard = kRoom | 2,
    kService = kRoom | 4,
    kAll = kBoard | kService,
};
constexpr bool Include(PhoneParts parts, PhoneParts part) {
    return (static_cast<unsigned>(part) & ~static_cast<unsigned>(parts)) == 0;
}

struct SessionOptions {
    double speed = 1.0;
    uint32_t seed = 1;                     // Of the noise in the room and of the faults.
    std::string output_folder = ".";       // Which exists.
    std::string title{};                   // Of the run's files; empty: none will be written.
    std::function<bool()> is_interrupted;  // Asked while something is waited for, on any thread.
    // Which facts the timeline shows, on any thread; all, without it.
    std::function<bool(const Fact& fact)> is_shown{};
    // Without it, a phone on the virtual board, which has all parts.
    std::function<host::Result<std::unique_ptr<Phone>>(RunRecord& record)> boot{};
};

// How a verb, or a scenario, ended.
struct VerbResult {
    VerbsEnd end = VerbsEnd::kDone;
    // Of what failed; none where the session's delivery tells.
    std::optional<Failure> failure{};

    bool ok() const { return end == VerbsEnd::kDone; }
    static VerbResult Failed(std::string text) { return Expected(std::move(text), {}); }
    static VerbResult Expected(std::string what, std::string seen) {
        return {VerbsEnd::kFailed, Failure{.expected = std::move(what), .seen = std::move(seen)}};
    }
    static VerbResult Interrupted() { return {.end = VerbsEnd::kInterrupted}; }
    static VerbResult Of(const host::Result<void>& result) {
        return result.ok() ? VerbResult{} : Failed(result.error());
    }
};

/**
 * A run: a phone that verbs are carried out on, with the models, recordings and captures that they
 * name, and the record of it.
 *
 * Times are the room's: one second is what the microphones hear in a second, however fast they are
 * played to. So a sequence of verbs means the same at every speed. Used by one thread.
 */
class Session {
  public:
    // That the end of a capture is waited for, where the verbs say nothing else.
    static constexpr double kCaptureSeconds = 10;

    Session(SessionOptions options, Terminal& terminal);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Boots the phone, with its DSP online. Must run on the board.
    host::Result<void> StartPhone();
    bool HasPhone() const { return phone_ != nullptr; }
    // Whether the phone has what a verb needs. One that a verb has yet to start has all parts.
    host::Result<void> CheckParts(PhoneParts needed) const;

    // The verdict on the run when its verbs have ended so; see findings/verdict.h.
    Verdict VerdictOn(const VerbResult& result, std::string subject) const;
    // Ends the phone, which no other operation may follow, and writes the run's files.
    host::Result<void> End(const Verdict& verdict, const RunFiles& files);

    // --- what verbs act on; those that need a part are carried out only where it is ---
    Phone& phone() { return *phone_; }
    Service& service() { return *phone_->service(); }
    virtual_dsp::Board& board() { return *phone_->board(); }
    Terminal& terminal() { return terminal_; }
    Timeline& timeline() { return timeline_; }
    RunRecord& record() { return record_; }
    const SessionOptions& options() const { return options_; }
    // Another one for each recording that is made, by the seed of the session.
    uint64_t NextSeed() { return options_.seed + recordings_++; }
    // A remark of the tool's.
    void Say(std::string text) { record_.AddRemark(std::move(text)); }
    void Show(const std::string& text) { timeline_.ShowBlock(text); }

    // --- models ---
    std::map<std::string, LoadedModel>& models() { return models_; }
    std::vector<std::string> ModelNames() const;
    // By name or by handle; null when there is none.
    LoadedModel* FindModel(const std::string& name);
    static VerbResult NoSuchModel(const std::string& name) {
        return VerbResult::Expected("the name of a model", "'" + name + "'");
    }

    // What the latest call of the HAL returned.
    void NoteResult(int result);
    std::optional<int> last_result() const { return last_result_; }
    // The latest result that is not 0, unless it was taken before: by the verb that expects it, or
    // by whoever carries verbs out, to whom it is then a failure.
    std::optional<int> TakeFailedResult();

    // --- the room ---
    // Plays a recording after those that are still playing; see Phone::Play().
    void Play(const audio::Sound& recording, std::shared_ptr<const audio::Sound> said = {},
              size_t said_at = 0);
    // What was played last, or null.
    const std::shared_ptr<PlayingRecording>& playback() const { return playback_; }
    // Waits until `done`, for `seconds` in the room and then a second by the clock on the wall for
    // what is on its way; or, `exactly`, for no longer than that. False when it did not come, or on
    // an interrupt.
    bool WaitUntil(const std::function<bool()>& done, double seconds, bool exactly = false);
    bool IsInterrupted() const { return options_.is_interrupted && options_.is_interrupted(); }
    VerbResult NotInTime(std::string what, std::string seen) const;

    // The one that the run is about, if it is about one.
    std::optional<Recording>& recording() { return recording_; }
    bool HasDetection() const { return recording_ && recording_->detection; }

    // --- events ---
    // Takes the oldest event that nobody has taken yet, of one model or of any.
    std::optional<Event> TakeEvent(std::optional<int> handle);
    const std::optional<Event>& last_event() const { return last_event_; }
    // Those not taken, one after another, or "no event".
    std::string DescribeEvents() const;

    // --- captures ---
    VerbResult StartCapture(const CaptureOptions& options, const CaptureReader::Until& until,
                            const std::string& file);
    VerbResult StopCapture();
    // Waits for the capture's end, in seconds by the clock on the wall: that is the pace of silence
    // in place of audio, whatever the speed.
    VerbResult AwaitCapture(double seconds);
    // The latest, running or not; null before the first.
    CaptureReader* capture() { return capture_.get(); }
    // What became of the detection that the run is about, for its verdict.
    void SetDelivery(const Delivery& delivery) { delivery_ = delivery; }
    const std::optional<Delivery>& delivery() const { return delivery_; }

    // --- around the HAL ---
    // The audio service, and with it the HAL, starts anew: all models are gone.
    VerbResult RestartService();
    void AddFault(const virtual_dsp::FaultRule& rule) { last_fault_ = board().faults().Add(rule); }
    void ClearFaults();
    std::optional<size_t> last_fault() const { return last_fault_; }
    void Route(const std::string& usecase, const std::string& device);
    RecentLog& log() { return log_; }

  private:
    void Take(const Fact& fact);

    const SessionOptions options_;
    Terminal& terminal_;
    Progress progress_{terminal_};
    RecentLog log_;
    RunRecord record_;
    Timeline timeline_;

    std::map<std::string, LoadedModel> models_;
    std::map<std::string, std::string> routes_;
    std::deque<Event> events_;  // Not taken yet.
    std::optional<Event> last_event_;
    std::optional<size_t> last_fault_;
    std::optional<int> failed_result_;
    std::optional<int> last_result_;
    std::optional<Delivery> delivery_;
    uint64_t recordings_ = 0;
    std::shared_ptr<PlayingRecording> playback_;
    std::optional<Recording> recording_;
    std::unique_ptr<Phone> phone_;
    std::unique_ptr<CaptureReader> capture_;     // After the phone: it ends first.
    std::unique_ptr<FaultLifter> fault_lifter_;  // Last: it uses the phone.
};

}  // namespace sthal
