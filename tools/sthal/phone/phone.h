#pragma once

#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/SoundModelType.h>

#include <android-base/logging.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "audio/hal/utils/soundcardstate/sound_card_state.h"
#include "host/framework_monitor/framework_monitor.h"
#include "host/virtual_dsp/board/board.h"
#include "tools/audio/sound.h"
#include "tools/sthal/output/timeline.h"
#include "tools/sthal/phone/framework.h"
#include "tools/sthal/phone/playback.h"

namespace sthal {

namespace soundtrigger = ::vendor::quarno::brindlecove::audio::hal::soundtrigger;

struct PhoneOptions {
    double speed = 1.0;                               // Of the microphone; 1 is real time.
    std::optional<std::vector<uint8_t>> tuning_file;  // None: the vendor partition has none.
    bool verbose = false;                             // All log lines and DSP journal entries.
    uint32_t noise_seed = 1;                          // Of what is heard while nothing is played.
    // Both are called from any thread, and must not use the phone: the HAL's log lines, shown or
    // not; and each piece of a model that has reached the DSP.
    std::function<void(std::string_view line)> on_log{};
    std::function<void()> on_model_piece{};
};

/**
 * A phone with everything that surrounds the HAL: the virtual board below it, the sound card
 * monitor, the framework above it, and the parts of the audio service that report dock, playback
 * and chargers. Each thing done with it prints one line of the timeline, and so does what the HAL
 * and the DSP make of it.
 *
 * One at a time in a process, since the process has one set of device nodes and one log. Used by
 * one thread; the lines come from several.
 */
class Phone {
  public:
    // Powers the board up and builds the HAL on it, which is not initialised yet. Must run on the
    // board (virtual_dsp::EnterBoard).
    static audio::Result<std::unique_ptr<Phone>> Boot(const PhoneOptions& options,
                                                      Timeline& timeline);
    // Ends the HAL, then the board.
    ~Phone();
    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    soundtrigger::SoundTriggerHal& hal() { return *hal_; }
    virtual_dsp::Board& board() { return *board_; }
    FrameworkCallback& framework() { return *framework_; }
    Timeline& timeline() { return timeline_; }

    // Shows the HAL's log lines from this severity on, and its changes of state; below INFO the
    // DSP's details as well.
    void SetLogLevel(android::base::LogSeverity severity);

    // --- the audio service ---
    bool Initialize();
    // The service dies and is started again: a new HAL, which has none of the models, reads the
    // tuning file and is initialised. No capture may be open.
    void RestartService();
    // What the sound card monitor reports. The DSP itself is crashed and booted by CrashDsp and
    // BootDsp, which report it, too.
    void ReportDsp(bool online);
    void CrashDsp();
    void BootDsp();
    void Dock(bool connected);
    // Routes a playback usecase to a device, with one track of a usage; an empty device ends it.
    void Play(std::string_view usecase, std::string_view device,
              ::aidl::android::media::audio::common::AudioUsage usage);
    // The two halves of Play: everything that is routed, and the usages of a usecase's tracks.
    void Route(const ::vendor::quarno::brindlecove::audio::hal::audio::router::RoutingGraph& graph);
    void PlayTracks(std::string_view usecase,
                    std::span<const ::aidl::android::media::audio::common::AudioUsage> usages);
    void FanCharger(bool present);
    std::string Dump(std::span<const std::string_view> arguments = {});

    // --- the framework ---
    bool ReadProperties();
    // The new model's handle. The vendor uuid is made of `name`.
    std::optional<int> Load(::aidl::android::media::soundtrigger::SoundModelType type,
                            std::span<const uint8_t> model, const std::string& name);
    bool Start(int handle, int io_handle,
               const ::aidl::android::media::soundtrigger::RecognitionConfig& config);
    bool Stop(int handle);
    bool Unload(int handle);
    bool ForceRecognition(int handle);
    // What the latest of these calls returned.
    int last_result() const { return last_result_; }
    // What the HAL did so far that the framework would restart it for, each on one line. A second
    // event of a model that the HAL restarted with its DSP does not count: it is only told of.
    std::vector<std::string> BrokenRules() const;

    // --- the room ---
    std::shared_ptr<Playback> PlayRecording(const audio::Sound& recording);

    // Notes in the run's record how much audio the DSP holds ready, and returns it; nothing when
    // no record is kept.
    BufferFill RecordFill();

    // When the DSP raised its latest detection record, in boot time; 0 before the first.
    int64_t latest_record_ns() const { return latest_record_ns_; }

  private:
    Phone(const PhoneOptions& options, Timeline& timeline);
    void ShowLogLine(android::base::LogSeverity severity, const char* tag, const char* text);
    void BuildHal();
    void ShowFault(const virtual_dsp::FaultRule& rule, uint64_t fired);
    void ShowJournal(const virtual_dsp::JournalEntry& entry);
    // Prints a framework call with its result and how long it took, and records it.
    bool Report(const std::string& call, int result, int64_t started_ns, RecordedCall about = {});
    RunRecord& record() { return timeline_.record(); }
    void ShowBrokenRule(const soundtrigger::FrameworkMonitor::Violation& violation);
    RecordedCall ServiceCall(const char* name, std::string detail = {}) const;

    const PhoneOptions options_;
    Timeline& timeline_;
    const std::shared_ptr<MicrophoneClock> microphone_clock_;
    std::unique_ptr<virtual_dsp::Board> board_;
    ::vendor::quarno::brindlecove::audio::hal::utils::soundcardstate::SoundCardState sound_card_;
    std::shared_ptr<FrameworkCallback> framework_;
    std::unique_ptr<soundtrigger::SoundTriggerHal> hal_;
    std::unique_ptr<soundtrigger::FrameworkMonitor> monitor_;  // Between framework_ and hal_.
    std::vector<std::string> broken_earlier_;                  // Before the service's restart.
    std::atomic<int64_t> latest_record_ns_{0};
    std::atomic<android::base::LogSeverity> shown_from_;
    int last_result_ = 0;
};

}  // namespace sthal
