#include "tools/sthal/phone/virtual_phone.h"

#include <android-base/logging.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/nodes/fault_text.h"

namespace sthal {

namespace {

using virtual_dsp::BoottimeNow;
using virtual_dsp::JournalEntry;
using virtual_dsp::PcmPort;

// The clock that the microphone stamps its blocks with, which remembers the latest stamp: it is how
// a playback knows when the DSP was told that a frame was heard.
struct BlockClock {
    std::atomic<int64_t> latest_ns{0};

    int64_t Stamp() {
        const int64_t now = BoottimeNow();
        latest_ns = now;
        return now;
    }
};

class VirtualPhone final : public Phone {
  public:
    explicit VirtualPhone(RunRecord& record, double speed) : record_(record), speed_(speed) {}
    ~VirtualPhone() override;

    host::Result<void> CreateBoard(virtual_dsp::BoardOptions options);
    void BuildService();

    Service* service() override { return service_ ? &*service_ : nullptr; }
    virtual_dsp::Board* board() override { return board_.get(); }
    std::shared_ptr<PlayingRecording> Play(const audio::Sound& recording,
                                           std::shared_ptr<const audio::Sound> said,
                                           size_t said_at) override;
    void StopPlaying() override { board_->microphone().Stop(); }
    uint64_t HeardFrames() const override { return board_->microphone().Position(); }
    audio::Sound Heard(uint64_t first, size_t count) const override;
    BufferFill NoteBufferFill() override;

  private:
    void NoteEntry(const JournalEntry& entry);
    void NoteFault(const virtual_dsp::FaultRule& rule, uint64_t count);

    RunRecord& record_;
    const double speed_;
    const std::shared_ptr<BlockClock> block_clock_ = std::make_shared<BlockClock>();
    std::atomic<int64_t> latest_record_ns_{0};
    std::unique_ptr<virtual_dsp::Board> board_;
    std::optional<Service> service_;  // After the board: it ends first.
};

VirtualPhone::~VirtualPhone() {
    // The page shows the HAL's last dump.
    if (service_ && record_.is_enabled()) (void)service_->ReadDump();
    const bool had_log = service_.has_value();
    service_.reset();
    if (board_ != nullptr) board_->dsp().journal().SetListener({});
    board_.reset();
    if (had_log) android::base::SetLogger(android::base::StderrLogger);
}

host::Result<void> VirtualPhone::CreateBoard(virtual_dsp::BoardOptions options) {
    options.microphone.speed = speed_;
    options.microphone.boottime_ns = [clock = block_clock_] { return clock->Stamp(); };
    auto board = virtual_dsp::Board::Create(options);
    if (!board.ok()) return host::Error(board.error());
    board_ = std::move(*board);
    board_->dsp().journal().SetListener([this](const JournalEntry& entry) { NoteEntry(entry); });
    board_->faults().SetHitListener(
            [this](const virtual_dsp::FaultRule& rule, uint64_t count) { NoteFault(rule, count); });
    return {};
}

void VirtualPhone::BuildService() {
    android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                    const char* tag, const char*, unsigned int, const char* text) {
        record_.Add(LogLine{.ns = BoottimeNow(),
                            .thread = gettid(),
                            .severity = severity,
                            .tag = tag,
                            .text = text});
    });
    service_.emplace(record_,
                     ServiceSurroundings{
                             .latest_record_ns = [this] { return latest_record_ns_.load(); },
                             .wake_locks =
                                     [this] {
                                         const auto held = board_->wake_locks().Held();
                                         return std::vector<std::string>(held.begin(), held.end());
                                     },
                     });
}

void VirtualPhone::NoteEntry(const JournalEntry& entry) {
    if (entry.As<virtual_dsp::DetectionRaised>() != nullptr) {
        latest_record_ns_ = entry.boottime_ns;
        (void)NoteBufferFill();
    }
    record_.Add(entry);
}

void VirtualPhone::NoteFault(const virtual_dsp::FaultRule& rule, uint64_t count) {
    // A rule may hit every poll of a node.
    constexpr uint64_t kNoted = 20;
    if (count > kNoted) return;
    board_->dsp().journal().Add(virtual_dsp::FaultHit{.rule = virtual_dsp::PrintFault(rule),
                                                      .count = count,
                                                      .is_last_reported = count == kNoted});
}

std::shared_ptr<PlayingRecording> VirtualPhone::Play(const audio::Sound& recording,
                                                     std::shared_ptr<const audio::Sound> said,
                                                     size_t said_at) {
    const size_t index =
            record_.AddRecording({.ns = BoottimeNow(),
                                  .recording = std::make_shared<const audio::Sound>(recording),
                                  .said = std::move(said),
                                  .said_at = said_at,
                                  .speed = speed_});
    auto playback = std::make_shared<PlayingRecording>(recording.frames());
    // On the microphone's thread; the position is still that of the block's first frame.
    const auto note_block = [this, index, playback,
                             first = std::optional<uint64_t>()](size_t heard) mutable {
        if (!first) first = board_->microphone().Position();
        const int64_t now_ns = block_clock_->latest_ns;
        playback->AddHeard(*first, heard, now_ns);
        record_.AddHeard(index, *first, heard, now_ns);
    };
    playback->Begin(board_->microphone().Play(recording.Stereo().samples, note_block));
    return playback;
}

audio::Sound VirtualPhone::Heard(uint64_t first, size_t count) const {
    return {.channels = 2, .samples = board_->microphone().Heard(first, count)};
}

BufferFill VirtualPhone::NoteBufferFill() {
    // The hotword port has two channels of 16 bits, the other one mu-law.
    constexpr size_t kHotwordFrameBytes = 4;
    const virtual_dsp::Dsp& dsp = board_->dsp();
    const BufferFill fill{
            .ns = BoottimeNow(),
            .hotword_frames = dsp.PcmBytesReady(PcmPort::kHotword) / kHotwordFrameBytes,
            .ambient_frames = dsp.PcmBytesReady(PcmPort::kAmbient)};
    record_.Add(fill);
    return fill;
}

}  // namespace

host::Result<std::unique_ptr<Phone>> BootVirtualPhone(const VirtualPhoneOptions& options,
                                                      RunRecord& record) {
    auto phone = std::make_unique<VirtualPhone>(record, options.speed);
    virtual_dsp::BoardOptions board_options;
    board_options.microphone.noise_seed = options.noise_seed;
    board_options.microphone.idle = virtual_dsp::MicrophoneOptions::Idle::kNoise;
    if (auto created = phone->CreateBoard(board_options); !created.ok()) {
        return host::Error(created.error());
    }
    if (options.tuning_file) phone->board()->SetTuningFile(*options.tuning_file);
    phone->BuildService();
    return phone;
}

host::Result<std::unique_ptr<Phone>> BootVirtualDsp(const std::string& directory, double speed,
                                                    RunRecord& record) {
    auto phone = std::make_unique<VirtualPhone>(record, speed);
    virtual_dsp::BoardOptions board_options;
    board_options.directory = directory;
    if (auto created = phone->CreateBoard(board_options); !created.ok()) {
        return host::Error(created.error());
    }
    return phone;
}

}  // namespace sthal
